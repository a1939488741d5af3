#include <array>
#include <optional>
#include <unordered_set>

#include "apps/Arguments.h"
#include "apps/CommandError.h"
#include "apps/Commands.h"
#include "apps/Escape.h"
#include "apps/Format.h"
#include "apps/Pages.h"
#include "apps/Table.h"
#include "model/Object.h"

namespace App {

namespace {

using Kind = Arguments::Kind;

enum class Style { Columns, LongColumns, Names, RawNames };

Style styleOf(const Arguments& arguments) {
    constexpr std::array<std::pair<const char*, Style>, 3> Styles{{
        {"-1", Style::Names},
        {"-0", Style::RawNames},
        {"-l", Style::LongColumns},
    }};
    std::optional<Style> chosen;
    for (const auto& [name, style] : Styles) {
        if (!arguments.has(name)) {
            continue;
        }
        if (chosen) {
            throw CommandError("-1, -0 and -l exclude each other");
        }
        chosen = style;
    }
    return chosen.value_or(Style::Columns);
}

Extent extentOf(const Arguments& arguments) {
    return arguments.has("--all") ? Extent::EveryPage : Extent::OnePage;
}

Ormek::ListOptions optionsOf(const Arguments& arguments) {
    constexpr std::uint32_t SmallPage = 100;
    constexpr std::uint32_t LargePage = 1000;
    const bool all = extentOf(arguments) == Extent::EveryPage;
    Ormek::ListOptions options;
    options.offset = arguments.number("--offset").value_or(0);
    options.count = arguments.number("--count").value_or(all ? LargePage : SmallPage);
    options.search = arguments.text("--search").value_or("");
    options.freshness =
        arguments.has("--refresh") ? Ormek::Freshness::Reload : Ormek::Freshness::Cached;
    if (all && options.count == 0) {
        throw CommandError("--all needs a --count above 0");
    }
    return options;
}

const Ormek::Object* asDocument(const Ormek::Item& entry) {
    return dynamic_cast<const Ormek::Object*>(&entry);
}

std::string typeOf(const Ormek::Item& entry) { return asDocument(entry) ? "file" : "folder"; }

std::string sizeOf(const Ormek::Item& entry) {
    const Ormek::Object* document = asDocument(entry);
    return document == nullptr ? "-" : std::to_string(document->length());
}

std::string mimeTypeOf(const Ormek::Item& entry) {
    const Ormek::Object* document = asDocument(entry);
    return document == nullptr || document->mimeType().empty() ? "-"
                                                               : escaped(document->mimeType());
}

void printColumns(std::ostream& out, const Listing::Entries& entries) {
    Table table({{Table::Align::Left, 6}, {Table::Align::Right, 10}, {}, {}});
    for (const auto& entry : entries) {
        table.add(
            {typeOf(*entry), sizeOf(*entry), formatTime(entry->updated()), escaped(entry->name())});
    }
    table.print(out);
}

void printLongColumns(std::ostream& out, const Listing::Entries& entries) {
    Table table({{Table::Align::Right, 6},
                 {Table::Align::Left, 6},
                 {Table::Align::Right, 10},
                 {Table::Align::Left, 19},
                 {Table::Align::Left, 19},
                 {Table::Align::Left, 24},
                 {}});
    for (const auto& entry : entries) {
        table.add({std::to_string(entry->id()), typeOf(*entry), sizeOf(*entry),
                   formatTime(entry->created()), formatTime(entry->updated()), mimeTypeOf(*entry),
                   escaped(entry->name())});
    }
    table.print(out);
}

void print(std::ostream& out, Style style, const Listing::Entries& entries) {
    switch (style) {
        case Style::Columns:
            printColumns(out, entries);
            return;
        case Style::LongColumns:
            printLongColumns(out, entries);
            return;
        case Style::Names:
            for (const auto& entry : entries) {
                out << escaped(entry->name()) << '\n';
            }
            return;
        case Style::RawNames:
            for (const auto& entry : entries) {
                out << entry->name() << '\0';
            }
    }
}

struct Request {
    Style style;
    Extent extent;
    Ormek::ListOptions options;
};

void listFolder(Session& session, unsigned long folder, const Request& request, Cost cost) {
    std::unordered_set<std::string> seen;
    const auto show = [&](const Listing::Entries& entries) {
        Listing::Entries unseen;
        for (const auto& entry : entries) {
            if (request.extent == Extent::OnePage || seen.insert(entry->name()).second) {
                unseen.push_back(entry);
            }
        }
        print(session.out(), request.style, unseen);
        return unseen.size();
    };
    const auto ask = [&](const Ormek::ListOptions& page) {
        return session.client().list(folder, page);
    };
    showPages(session, {ask, show}, request.options, request.extent, cost);
}

}  // namespace

void runLs(Session& session, const Command::Words& words) {
    const Arguments arguments(words,
                              {{"-1", Kind::Flag},
                               {"-0", Kind::Flag},
                               {"-l", Kind::Flag},
                               {"--offset", Kind::Value},
                               {"--count", Kind::Value},
                               {"--all", Kind::Flag},
                               {"--search", Kind::Value},
                               {"--refresh", Kind::Flag}},
                              {0, 1});
    const Request request{styleOf(arguments), extentOf(arguments), optionsOf(arguments)};
    Cost cost;
    if (!arguments.path()) {
        listFolder(session, session.folder(), request, cost);
        return;
    }
    const auto entry = session.find(*arguments.path(), cost);
    if (isFolder(*entry)) {
        listFolder(session, entry->id(), request, cost);
        return;
    }
    if (arguments.has("--search") || arguments.has("--refresh")) {
        throw CommandError("--search and --refresh are for folders");
    }
    print(session.out(), request.style, {entry});
    session.console().printStatus(1, 1, cost);
}

}  // namespace App
