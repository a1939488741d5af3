// The trace, written to a file.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "bench/Corpus.h"
#include "bench/FilledCache.h"
#include "cache/Trace.h"

namespace Ormek::Bench {

namespace {

/// A file that has no name any more and is rewound now and then, so that it stays small.
class ScratchFile {
  public:
    ScratchFile() {
        std::string path = (std::filesystem::temp_directory_path() / "ormek-bench-XXXXXX").string();
        const int fd = ::mkstemp(path.data());
        if (fd < 0 || !_buffer.open(path, std::ios::out | std::ios::binary)) {
            throw std::runtime_error("cannot make a file for the trace");
        }
        ::close(fd);
        std::filesystem::remove(path);
    }

    std::streambuf& buffer() { return _buffer; }
    void rewind() { _buffer.pubseekpos(0, std::ios::out); }

  private:
    std::filebuf _buffer;
};

/// Sends the trace somewhere during its life.
class TraceTo {
  public:
    explicit TraceTo(std::streambuf& buffer)
        : _state(std::cout.rdstate()), _previous(std::cout.rdbuf(&buffer)) {}
    TraceTo(const TraceTo&) = delete;
    TraceTo& operator=(const TraceTo&) = delete;
    ~TraceTo() {
        std::cout.rdbuf(_previous);
        std::cout.setstate(_state);
    }

  private:
    std::ios::iostate _state;
    std::streambuf* _previous;
};

// --- One line ------------------------------------------------------------------------------

constexpr std::string_view Label = "Ormek::DirectoryCache::getItem 1.2 parentId: ";
// Not known to the compiler, which would write its digits itself.
volatile unsigned long parentId = 2'305'843'009'213'693'951;
volatile unsigned long oldParentId = 0;
constexpr int LinesPerTurn = 1000;

void traceLines(benchmark::State& state) {
    ScratchFile file;
    const TraceTo here(file.buffer());
    unsigned long id = 0;
    for (auto _ : state) {
        for (int line = 0; line < LinesPerTurn; ++line) {
            const unsigned long parent = parentId;
            const unsigned long oldParent = oldParentId;
            trace(Label, parent, " ", oldParent, " ", ++id, "\n");
        }
        file.rewind();
    }
}

char* append(char* at, std::string_view text) { return std::copy(text.begin(), text.end(), at); }

char* append(char* at, unsigned long number) {
    constexpr int Longest = 20;
    return std::to_chars(at, at + Longest, number).ptr;
}

void formatLines(benchmark::State& state) {
    ScratchFile file;
    std::ostream out(&file.buffer());
    unsigned long id = 0;
    for (auto _ : state) {
        for (int line = 0; line < LinesPerTurn; ++line) {
            std::array<char, 512> buffer;
            char* end = append(buffer.data(), Label);
            end = append(append(end, parentId), " ");
            end = append(append(end, oldParentId), " ");
            end = append(append(end, ++id), "\n");
            out.write(buffer.data(), end - buffer.data());
        }
        file.rewind();
    }
}

BENCHMARK(traceLines)->Name("TraceLine/ormek");
BENCHMARK(formatLines)->Name("TraceLine/format");

// --- A whole query -------------------------------------------------------------------------

void tracedQuery(benchmark::State& state) {
    const Corpus corpus(static_cast<std::size_t>(state.range(0)));
    FilledCache filled(corpus);
    filled.deliverAll();
    const FilterInternal filter = pageFilter(corpus.folderId(0), 0);
    ScratchFile file;
    const TraceTo here(file.buffer());
    for (auto _ : state) {
        std::shared_ptr<QueryResult> result;
        benchmark::DoNotOptimize(filled.cache().get(filter, result, nullptr));
        file.rewind();
    }
}

std::string traceOfQuery(const Corpus& corpus) {
    FilledCache filled(corpus);
    filled.deliverAll();
    std::stringbuf text;
    const TraceTo here(text);
    std::shared_ptr<QueryResult> result;
    filled.cache().get(pageFilter(corpus.folderId(0), 0), result, nullptr);
    return text.str();
}

void writeLines(benchmark::State& state) {
    const std::string text = traceOfQuery(Corpus(static_cast<std::size_t>(state.range(0))));
    std::vector<std::string_view> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin) + 1;
        lines.emplace_back(text.data() + begin, end - begin);
        begin = end;
    }
    ScratchFile file;
    std::ostream out(&file.buffer());
    for (auto _ : state) {
        for (const std::string_view line : lines) {
            out.write(line.data(), static_cast<std::streamsize>(line.size()));
        }
        file.rewind();
    }
    state.counters["bytes"] = static_cast<double>(text.size());
}

// What it takes to put the lines together, from what lies ready.
void formatEntries(benchmark::State& state) {
    const Corpus corpus(static_cast<std::size_t>(state.range(0)));
    std::vector<std::pair<unsigned long, std::string>> entries;
    for (std::size_t position = 0; position < corpus.size(); ++position) {
        entries.emplace_back(corpus.id(0, position), nameAt(position));
    }
    ScratchFile file;
    std::ostream out(&file.buffer());
    for (auto _ : state) {
        for (int round = 0; round < 2; ++round) {
            for (const auto& [id, name] : entries) {
                std::array<char, 512> buffer;
                char* end = append(append(buffer.data(), "item in directory: "), id);
                end = append(append(append(end, " name: "), name), "\n");
                out.write(buffer.data(), end - buffer.data());
            }
        }
        file.rewind();
    }
}

BENCHMARK(tracedQuery)->Name("TracedQuery/ormek")->Arg(1'000)->Arg(10'000);
BENCHMARK(formatEntries)->Name("TracedQuery/format")->Arg(1'000)->Arg(10'000);
BENCHMARK(writeLines)->Name("TracedQuery/write")->Arg(1'000)->Arg(10'000);

}  // namespace

}  // namespace Ormek::Bench
