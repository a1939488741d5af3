// Asks a client the same questions and has it do and undo the same things for ever, and looks
// whether its memory stays what it was after the first thousand of them.

#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "backend/FolderService.h"
#include "client/Client.h"
#include "service/ContentSource.h"
#include "tests/support/SystemCallFaults.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Testing {
namespace {

constexpr unsigned long WarmUp = 1000;
constexpr unsigned long MostGrowth = 5;  // Per cent.
constexpr int Folders = 6;
constexpr int Files = 120;

unsigned long residentKilobytes() {
    // Added up when it is read, while other files of the kind give a number that lags behind.
    std::ifstream status("/proc/self/smaps_rollup");
    for (std::string word; status >> word;) {
        unsigned long kilobytes = 0;
        if (word == "Rss:" && status >> kilobytes) {
            return kilobytes;
        }
    }
    throw std::runtime_error("/proc/self/smaps_rollup does not say what is resident");
}

/// So many bytes.
class Zeros : public Nimra::ContentSource {
  public:
    explicit Zeros(unsigned long size) : _size(size), _left(size) {}

    unsigned long size() const override { return _size; }
    std::size_t read(char* buffer, std::size_t size) override {
        const std::size_t count = std::min<std::size_t>(size, _left);
        std::fill_n(buffer, count, '\0');
        _left -= count;
        return count;
    }

  private:
    unsigned long _size;
    unsigned long _left;
};

/// A client on a folder of its own, and everything that is asked of it.
class Soak {
  public:
    /// One kind of step; it is told how often it was taken before. What it changes it changes back,
    /// so that there is always as much to remember. To let the client do something else as well is
    /// to write its function and name it in the table.
    using Step = void (Soak::*)(unsigned long time);

    Soak() {
        for (int folder = 0; folder < Folders; ++folder) {
            const std::string name = "folder " + std::to_string(folder);
            _folder.makeFolder(name);
            for (int file = 0; file < Files; ++file) {
                _folder.writeFile(name + "/file " + std::to_string(file));
            }
        }
        _keepsAttributes = setxattr(_folder.path().c_str(), "user.key", "", 0, 0) == 0;
        if (!_keepsAttributes) {
            std::cerr << _folder.path() << " keeps no attributes: no key value is saved\n";
        }
        _client = std::make_unique<Client>(
            std::make_unique<Nimra::FolderService>(_folder.path().string()));
        for (int folder = 0; folder < Folders; ++folder) {
            const Answer answer = answerTo(_client->find("folder " + std::to_string(folder)));
            _ids.push_back(answer.entries.at(0)->id());
        }
    }

    void takeStep(unsigned long number) {
        (this->*Steps[number % Steps.size()])(number / Steps.size());
    }
    unsigned long queries() const { return _queries; }
    unsigned long actions() const { return _actions; }

  private:
    static const std::array<Step, 15> Steps;

    Answer answerTo(const Query& query) {
        ++_queries;
        Answer answer = _client->wait(query, std::chrono::seconds(30));
        if (answer.state != AnswerState::Answered) {
            throw std::runtime_error(answer.error ? answer.error->what() : "no answer in time");
        }
        return answer;
    }
    Outcome outcomeOf(const Action& action) {
        ++_actions;
        Outcome outcome = _client->wait(action, std::chrono::seconds(30));
        if (outcome.state != ActionState::Done) {
            throw std::runtime_error(outcome.error ? outcome.error->what() : "no outcome in time");
        }
        return outcome;
    }
    unsigned long folder(unsigned long time) const { return _ids[time % _ids.size()]; }
    static std::string fileName(unsigned long time) {
        return "file " + std::to_string(time / Folders % 10);
    }
    /// A document that is there all the time.
    unsigned long document(unsigned long time) {
        return answerTo(_client->find(folder(time), fileName(time))).entries.at(0)->id();
    }

    void listPage(unsigned long time) {
        ListOptions options;
        options.count = 20;
        options.offset = static_cast<std::uint32_t>(time / Folders % 6 * 20);
        answerTo(_client->list(folder(time), options));
    }
    void listWhole(unsigned long time) { answerTo(_client->list(folder(time))); }
    void listBackwards(unsigned long time) {
        ListOptions options;
        options.order = ListOrder::Descending;
        options.kind = ListKind::Documents;
        answerTo(_client->list(folder(time), options));
    }
    void search(unsigned long time) {
        ListOptions options;
        options.search = std::to_string(time % 4);
        answerTo(_client->list(folder(time), options));
    }
    void reload(unsigned long time) {
        ListOptions options;
        options.freshness = Freshness::Reload;
        answerTo(_client->list(folder(time), options));
    }
    void listTags(unsigned long time) { answerTo(_client->tags(folder(time))); }
    void findByPath(unsigned long time) {
        const std::string path = "folder " + std::to_string(time % Folders) + '/' + fileName(time);
        answerTo(_client->find(path, time % 2 == 0 ? Freshness::Cached : Freshness::Reload));
    }
    void writeFile(unsigned long time) {
        const std::string path = "folder " + std::to_string(time % Folders) + '/' + fileName(time);
        _folder.writeFile(path, std::to_string(time));
        answerTo(_client->find(path, Freshness::Reload));
    }

    void makeDocument(unsigned long time) {
        const Outcome made = outcomeOf(_client->createDocument(
            folder(time), "document", std::make_unique<Zeros>(time % 4 * 1000)));
        outcomeOf(_client->remove(made.entryId));
    }
    void makeFolder(unsigned long time) {
        const Outcome made = outcomeOf(_client->createFolder(folder(time), "subfolder"));
        outcomeOf(_client->remove(made.entryId));
    }
    void rename(unsigned long time) {
        const unsigned long id = document(time);
        outcomeOf(_client->rename(id, "renamed"));
        outcomeOf(_client->rename(id, fileName(time)));
    }
    void move(unsigned long time) {
        const unsigned long id = document(time);
        outcomeOf(_client->move(id, _client->rootId()));
        outcomeOf(_client->move(id, folder(time)));
    }
    void saveKeyValue(unsigned long time) {
        if (!_keepsAttributes) {
            return;
        }
        outcomeOf(
            _client->saveMetaData(document(time), {{"key", {std::to_string(time % 7), false}}}));
    }
    void readContent(unsigned long time) {
        const Outcome opened = outcomeOf(_client->open(document(time)));
        std::array<char, 100> content{};
        opened.stream->read(0, content.data(), content.size());
    }
    void holdSession(unsigned long time) {
        _client->releaseSession(*outcomeOf(_client->openSession(document(time))).session);
    }

    // Waiting for the disk takes much time and no memory.
    UnsyncedDisk _unsynced;
    TemporaryFolder _folder;
    bool _keepsAttributes = false;
    std::unique_ptr<Client> _client;
    std::vector<unsigned long> _ids;
    unsigned long _queries = 0;
    unsigned long _actions = 0;
};

const std::array<Soak::Step, 15> Soak::Steps = {
    &Soak::listPage,     &Soak::listWhole,    &Soak::listBackwards, &Soak::search,
    &Soak::reload,       &Soak::listTags,     &Soak::findByPath,    &Soak::writeFile,
    &Soak::rename,       &Soak::makeDocument, &Soak::move,          &Soak::makeFolder,
    &Soak::saveKeyValue, &Soak::readContent,  &Soak::holdSession,
};

/// Whether memory ended where it was after the first thousand steps.
bool run(std::chrono::seconds duration, unsigned long leastSteps) {
    Soak soak;
    unsigned long steps = 0;
    for (; steps < WarmUp; ++steps) {
        soak.takeStep(steps);
    }
    const unsigned long first = residentKilobytes();
    std::cerr << "after " << steps << " steps: " << first << " KiB\n";
    const auto end = std::chrono::steady_clock::now() + duration;
    while (steps < leastSteps || std::chrono::steady_clock::now() < end) {
        soak.takeStep(steps++);
    }
    const unsigned long last = residentKilobytes();
    const long growth = static_cast<long>(last * 1000 / first) - 1000;
    std::cerr << "after " << steps << " steps: " << last << " KiB, " << (growth < 0 ? "-" : "+")
              << std::abs(growth) / 10 << "." << std::abs(growth) % 10 << " %\n"
              << steps << " steps were " << soak.queries() << " queries and " << soak.actions()
              << " actions\n";
    return last * 100 <= first * (100 + MostGrowth);
}

}  // namespace
}  // namespace Ormek::Testing

// usage: ormek_soak SECONDS [least number of steps]
int main(int count, char** arguments) {
    try {
        if (count < 2 || count > 3) {
            throw std::invalid_argument("for how many seconds?");
        }
        std::cout.setstate(std::ios::failbit);
        const std::chrono::seconds duration(std::stoul(arguments[1]));
        const unsigned long least = count == 3 ? std::stoul(arguments[2]) : 0;
        if (!Ormek::Testing::run(duration, least)) {
            std::cerr << "soak: memory has grown too much\n";
            return EXIT_FAILURE;
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "soak: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
