// Lists a folder page by page, twice: what is loaded the first time comes from memory the second.
// usage: list_folder [FOLDER]

#include <exception>
#include <iostream>

#include "backend/FolderService.h"
#include "client/Client.h"

namespace {

constexpr std::uint32_t PageSize = 50;
constexpr std::chrono::seconds Patience{10};

// Loading never blocks: a query is put, and its answer waited for, here or later. A program with an
// event loop watches client.fd() instead and polls.
Ormek::Answer page(Ormek::Client& client, std::uint32_t offset) {
    Ormek::ListOptions options;
    options.offset = offset;
    options.count = PageSize;
    const Ormek::Query query = client.list(client.rootId(), options);
    Ormek::Answer answer = client.wait(query, Patience);
    if (answer.state == Ormek::AnswerState::Failed) {
        throw *answer.error;
    }
    if (answer.state == Ormek::AnswerState::Pending) {
        throw std::runtime_error("no answer in time");
    }
    return answer;
}

void list(std::ostream& out, Ormek::Client& client) {
    std::uint32_t offset = 0;
    Ormek::Answer answer;
    do {
        answer = page(client, offset);
        for (const auto& entry : answer.entries) {
            out << entry->name() << '\n';
        }
        const bool held = answer.source == Ormek::AnswerSource::Memory;
        out << "-- " << answer.entries.size() << " of " << answer.total << " entries, "
            << (held ? "from memory" : "loaded") << '\n';
        offset += PageSize;
    } while (offset < answer.total);
}

}  // namespace

int main(int argc, char** argv) {
    // The cache writes its trace to std::cout. Without a buffer that goes nowhere, and the buffer
    // serves a stream of our own.
    std::ostream out(std::cout.rdbuf(nullptr));
    try {
        Ormek::Client client(std::make_unique<Nimra::FolderService>(argc > 1 ? argv[1] : "."));
        list(out, client);
        list(out, client);
    } catch (const std::exception& error) {
        std::cerr << "list_folder: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
