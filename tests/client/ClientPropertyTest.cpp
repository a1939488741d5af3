#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <iostream>
#include <map>

#include "client/Client.h"
#include "tests/support/FixedCases.h"
#include "tests/support/ScriptedService.h"

namespace Ormek {
namespace {

using namespace std::chrono_literals;
using Testing::holds;
using Testing::ScriptedService;

constexpr unsigned long Root = ScriptedService::RootId;
constexpr std::uint32_t PageSize = 3;

/// One thing that a front end or somebody elsewhere does.
struct Step {
    enum Kind { List, Search, Documents, Find, Reload, Add, Remove, Fail, Last = Fail };
    Kind kind;
    unsigned long number;
};

std::ostream& operator<<(std::ostream& stream, const Step& step) {
    return stream << '{' << step.kind << ", " << step.number << '}';
}

rc::Gen<Step> steps() {
    return rc::gen::build<Step>(
        rc::gen::set(&Step::kind, rc::gen::map(rc::gen::inRange<int>(0, Step::Last + 1),
                                               [](int kind) { return Step::Kind(kind); })),
        rc::gen::set(&Step::number, rc::gen::inRange<unsigned long>(0, 12)));
}

/// A client, its service, and what that one lists.
class World {
  public:
    World() {
        for (unsigned long number = 0; number < 8; ++number) {
            add(number * 2);
        }
    }

    void take(const Step& step) {
        switch (step.kind) {
            case Step::List:
                list(page(step.number));
                break;
            case Step::Reload:
                reload(step.number);
                break;
            case Step::Search:
                list(search());
                break;
            case Step::Documents:
                list(documents());
                break;
            case Step::Find:
                answerTo(client.find(nameOf(step.number)));
                break;
            case Step::Add:
                add(step.number);
                reload(step.number);
                break;
            case Step::Remove:
                remove(step.number);
                reload(step.number);
                break;
            case Step::Fail:
                failOnce(step.number);
                break;
        }
    }

    /// All pages, one after the other, each until it comes from memory.
    std::vector<std::string> listed() {
        std::vector<std::string> names;
        for (int round = 0; round < 100; ++round) {
            names.clear();
            bool allHeld = true;
            unsigned long total = 1;
            for (std::uint32_t offset = 0; offset < total; offset += PageSize) {
                ListOptions options;
                options.offset = offset;
                options.count = PageSize;
                const Answer answer = list(options);
                allHeld = allHeld && answer.source == AnswerSource::Memory;
                total = answer.total;
                for (const auto& entry : answer.entries) {
                    names.push_back(entry->name());
                }
            }
            if (allHeld) {
                return names;
            }
        }
        return {"never current"};
    }

    std::vector<std::string> expected() const {
        std::vector<std::string> names;
        for (const auto& [name, id] : _entries) {
            names.push_back(name);
        }
        return names;
    }

  private:
    static std::string nameOf(unsigned long number) {
        return std::string(number % 3 == 0 ? "x" : "y") + std::to_string(100 + number);
    }

    void add(unsigned long number) {
        if (_entries.emplace(nameOf(number), _nextId).second) {
            service.addDocument(_nextId++, Root, nameOf(number));
        }
    }

    void remove(unsigned long number) {
        const auto found = _entries.find(nameOf(number));
        if (found != _entries.end()) {
            service.drop(found->second);
            _entries.erase(found);
        }
    }

    void failOnce(unsigned long number) {
        service.failWith(Nimra::ServiceError(Nimra::Reason::NotReachable, "away"));
        reload(number);
        service.failWith(std::nullopt);
    }

    static ListOptions page(unsigned long number) {
        ListOptions options;
        options.offset = static_cast<std::uint32_t>(number % 4) * PageSize;
        options.count = PageSize;
        return options;
    }
    static ListOptions search() {
        ListOptions options;
        options.search = "x";
        return options;
    }
    static ListOptions documents() {
        ListOptions options;
        options.kind = ListKind::Documents;
        return options;
    }

    void reload(unsigned long number) {
        ListOptions options = page(number);
        options.freshness = Freshness::Reload;
        list(options);
    }
    Answer list(const ListOptions& options) { return answerTo(client.list(Root, options)); }
    Answer answerTo(const Query& query) { return client.wait(query, 10s); }

    std::unique_ptr<ScriptedService> _owned = std::make_unique<ScriptedService>();
    ScriptedService& service = *_owned;
    Client client{std::move(_owned)};
    std::map<std::string, unsigned long> _entries;
    unsigned long _nextId = 100;
};

TEST(ClientPropertyTest, OnceEveryPageIsHeldTheListingIsTheServersWhateverWasAskedBefore) {
    std::cout.setstate(std::ios::failbit);
    EXPECT_TRUE(holds("the listing is the server's", 5000, 20, [] {
        World world;
        for (const Step& step : *rc::gen::container<std::vector<Step>>(steps())) {
            world.take(step);
        }
        RC_ASSERT(world.listed() == world.expected());
    }));
    std::cout.clear();
}

}  // namespace
}  // namespace Ormek
