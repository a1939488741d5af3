#include "bench/Corpus.h"

#include <algorithm>
#include <random>
#include <string>
#include <unordered_set>

#include "model/ObjectInternal.h"

namespace Ormek::Bench {

namespace {

constexpr unsigned long OwnerId = 7;
constexpr std::size_t NameLength = 30;

}  // namespace

Corpus::Corpus(std::size_t entries, std::size_t largestFolder) {
    std::mt19937_64 random(entries);
    std::unordered_set<unsigned long> taken;
    const auto freshId = [&] {
        unsigned long id = 0;
        do {
            id = random() >> 2U;  // A database's numbers are signed.
        } while (id == 0 || !taken.insert(id).second);
        return id;
    };
    const std::size_t folders = std::max<std::size_t>(1, entries / largestFolder);
    std::generate_n(std::back_inserter(_folderIds), folders, freshId);
    _ids.reserve(entries);
    std::generate_n(std::back_inserter(_ids), entries, freshId);
}

std::vector<unsigned long> Corpus::shuffledIds() const {
    std::vector<unsigned long> ids = _ids;
    std::shuffle(ids.begin(), ids.end(), std::mt19937_64(1));
    return ids;
}

Nimra::Document Corpus::record(std::size_t folder, std::size_t position) const {
    Nimra::Document record(id(folder, position), folderId(folder), OwnerId, nameAt(position));
    record.mimeType = "application/pdf";
    record.created = 1'600'000'000'000 + position;
    record.updated = 1'650'000'000'000 + position;
    record.length = 1000 + position;
    record.aclMode = 2;
    record.addKeyValue("artist", {"unknown", false});
    return record;
}

std::vector<Nimra::Document> Corpus::page(std::size_t folder, std::size_t page) const {
    std::vector<Nimra::Document> records;
    records.reserve(PageSize);
    for (std::size_t position = page * PageSize; position < (page + 1) * PageSize; ++position) {
        records.push_back(record(folder, position));
    }
    return records;
}

std::string nameAt(std::size_t position) {
    const std::string digits = std::to_string(position);
    std::string name = std::string(10 - digits.size(), '0') + digits + " holiday photographs";
    name.resize(NameLength, '.');
    return name;
}

std::shared_ptr<Item> entryOf(const Nimra::Document& record) {
    auto entry = std::make_shared<ObjectInternal>(record, nullptr);
    entry->idLoaded(true);
    return entry;
}

std::vector<std::size_t> randomNumbers(std::size_t count, std::size_t limit) {
    std::mt19937_64 random(count + limit);
    std::uniform_int_distribution<std::size_t> below(0, limit - 1);
    std::vector<std::size_t> numbers(count);
    std::generate(numbers.begin(), numbers.end(), [&] { return below(random); });
    return numbers;
}

}  // namespace Ormek::Bench
