// Asks a client the same questions for ever, and looks whether its memory stays what it was after
// the first round of them.

#include <array>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "backend/FolderService.h"
#include "client/Client.h"
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

/// A client on a folder of its own, and everything that is asked of it.
class Soak {
  public:
    /// One kind of step; it is told how often it was taken before. To let the client do something
    /// else as well is to write its function and name it in the table.
    using Step = void (Soak::*)(unsigned long time);

    Soak() {
        for (int folder = 0; folder < Folders; ++folder) {
            const std::string name = "folder " + std::to_string(folder);
            _folder.makeFolder(name);
            for (int file = 0; file < Files; ++file) {
                _folder.writeFile(name + "/file " + std::to_string(file));
            }
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

  private:
    static const std::array<Step, 8> Steps;

    Answer answerTo(const Query& query) {
        Answer answer = _client->wait(query, std::chrono::seconds(30));
        if (answer.state != AnswerState::Answered) {
            throw std::runtime_error(answer.error ? answer.error->what() : "no answer in time");
        }
        return answer;
    }
    unsigned long folder(unsigned long time) const { return _ids[time % _ids.size()]; }

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
        const std::string path = "folder " + std::to_string(time % Folders) + "/file " +
                                 std::to_string(time / Folders % 10);
        answerTo(_client->find(path, time % 2 == 0 ? Freshness::Cached : Freshness::Reload));
    }
    void writeFile(unsigned long time) {
        const std::string path = "folder " + std::to_string(time % Folders) + "/file " +
                                 std::to_string(time / Folders % 10);
        _folder.writeFile(path, std::to_string(time));
        answerTo(_client->find(path, Freshness::Reload));
    }

    TemporaryFolder _folder;
    std::unique_ptr<Client> _client;
    std::vector<unsigned long> _ids;
};

const std::array<Soak::Step, 8> Soak::Steps = {
    &Soak::listPage, &Soak::listWhole, &Soak::listBackwards, &Soak::search,
    &Soak::reload,   &Soak::listTags,  &Soak::findByPath,    &Soak::writeFile,
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
    std::cerr << "after " << steps << " steps: " << last << " KiB, " << growth / 10 << "."
              << std::abs(growth % 10) << " % more\n";
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
