#include <iostream>

#include "backend/FolderService.h"
#include "client/Client.h"

int main() {
    std::ostream out(std::cout.rdbuf(nullptr));  // The cache's trace goes nowhere, our output on.
    Ormek::Client client(std::make_unique<Nimra::FolderService>("."));
    for (int i = 0; i < 2; ++i) {
        const auto answer = client.wait(client.list(client.rootId()), std::chrono::seconds(5));
        if (answer.state != Ormek::AnswerState::Answered) {
            return 1;
        }
        for (const auto& entry : answer.entries) {
            out << entry->name() << '\n';
        }
        const bool held = answer.source == Ormek::AnswerSource::Memory;
        out << (held ? "(from memory)\n" : "(loaded)\n");
    }
}
