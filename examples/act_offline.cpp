// Makes a folder and a document in it while the service is off, sees both at once, and has them
// arrive when it is on again. In a folder of its own.

#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "backend/FolderService.h"
#include "client/Client.h"

namespace {

/// A text to be uploaded. Content of any size can be read from anywhere in pieces.
class Text : public Nimra::ContentSource {
  public:
    explicit Text(std::string text) : _text(std::move(text)) {}

    unsigned long size() const override { return _text.size(); }
    std::size_t read(char* buffer, std::size_t size) override {
        const std::size_t length = _text.copy(buffer, size, _done);
        _done += length;
        return length;
    }

  private:
    std::string _text;
    std::size_t _done = 0;
};

bool act(std::ostream& out, const std::string& path) {
    Ormek::Client client(std::make_unique<Nimra::FolderService>(path));
    // Told on the thread that calls the client, and free to call it.
    client.subscribe([&](const Ormek::Event& event) {
        if (const auto* change = std::get_if<Ormek::EntryIdChanged>(&event)) {
            out << "-- the service knows " << client.pathOf(change->newId) << " by now\n";
        }
    });

    client.setOnline(false);
    const auto folder = client.createFolder(client.rootId(), "letters");
    const auto letter =
        client.createDocument(folder.entryId(), "draft", std::make_unique<Text>("Dear reader,\n"));
    const auto renamed = client.rename(letter.entryId(), "letter");
    const auto again = client.createFolder(client.rootId(), "letters");
    out << "-- " << client.waiting().size() << " actions wait, " << client.pathOf(letter.entryId())
        << " shows already\n";

    client.setOnline(true);
    client.waitUntilIdle(std::chrono::seconds(10));
    const auto refused = client.poll(again);
    if (refused.error) {
        out << "-- one was refused: " << refused.error->what() << '\n';
    }
    return client.poll(renamed).state == Ormek::ActionState::Done &&
           std::filesystem::file_size(path + "/letters/letter") == 13;
}

}  // namespace

int main() {
    std::ostream out(std::cout.rdbuf(nullptr));  // The cache's trace goes nowhere, our output on.
    std::string path = (std::filesystem::temp_directory_path() / "ormek-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) {
        return 1;
    }
    const bool wellDone = act(out, path);
    std::filesystem::remove_all(path);
    return wellDone ? 0 : 1;
}
