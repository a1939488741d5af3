#include "client/Edits.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Ormek {

void Edits::begin(unsigned long entryId, const std::optional<State>& served, Step step) {
    const auto known = _entries.find(entryId);
    if (known != _entries.end()) {
        known->second.steps.push_back(std::move(step));
        return;
    }
    Entry entry{served, {}};
    entry.steps.push_back(std::move(step));
    _entries.emplace(entryId, std::move(entry));
}

void Edits::number(unsigned long entryId, unsigned long operationId) noexcept {
    const auto known = _entries.find(entryId);
    if (known != _entries.end()) {
        known->second.steps.back().operationId = operationId;
    }
}

void Edits::served(unsigned long entryId, std::optional<State> served) {
    const auto known = _entries.find(entryId);
    if (known != _entries.end()) {
        known->second.served = std::move(served);
    }
}

bool Edits::isServed(unsigned long entryId) const {
    const auto known = _entries.find(entryId);
    return known != _entries.end() && known->second.served;
}

std::optional<Edits::State> Edits::served(unsigned long entryId) const {
    const auto known = _entries.find(entryId);
    return known == _entries.end() ? std::nullopt : known->second.served;
}

std::optional<Edits::State> Edits::end(unsigned long entryId, unsigned long operationId) {
    const auto known = _entries.find(entryId);
    if (known == _entries.end()) {
        return std::nullopt;
    }
    std::vector<Step>& steps = known->second.steps;
    steps.erase(std::remove_if(steps.begin(), steps.end(),
                               [&](const Step& step) { return step.operationId == operationId; }),
                steps.end());
    if (!steps.empty()) {
        return shown(known->second);
    }
    std::optional<State> now = std::move(known->second.served);
    _entries.erase(known);
    return now;
}

std::optional<Edits::State> Edits::shown(unsigned long entryId) const {
    const auto known = _entries.find(entryId);
    return known == _entries.end() ? std::nullopt : shown(known->second);
}

std::optional<Edits::State> Edits::shown(const Entry& entry) {
    std::optional<State> state = entry.served;
    for (const Step& step : entry.steps) {
        if (step.kind == ActionKind::CreateDocument || step.kind == ActionKind::CreateFolder) {
            state = step.to;
        } else if (!state || step.kind == ActionKind::Remove) {
            return std::nullopt;
        } else if (step.kind == ActionKind::Rename) {
            state->name = step.to.name;
        } else if (step.kind == ActionKind::Move) {
            state->folderId = step.to.folderId;
        } else if (step.kind == ActionKind::SaveMetaData) {
            for (const auto& [key, value] : step.to.keyValues) {
                state->keyValues[key] = value;
            }
        }
    }
    return state;
}

unsigned long Edits::find(unsigned long folderId, const std::string& name) const {
    for (const auto& [id, entry] : _entries) {
        const std::optional<State> state = shown(entry);
        if (state && state->folderId == folderId && state->name == name) {
            return id;
        }
    }
    return 0;
}

std::vector<unsigned long> Edits::shownIn(unsigned long folderId) const {
    std::vector<unsigned long> ids;
    for (const auto& [id, entry] : _entries) {
        const std::optional<State> state = shown(entry);
        if (state && state->folderId == folderId) {
            ids.push_back(id);
        }
    }
    return ids;
}

std::vector<unsigned long> Edits::servedIn(unsigned long folderId) const {
    std::vector<unsigned long> ids;
    for (const auto& [id, entry] : _entries) {
        if (entry.served && entry.served->folderId == folderId) {
            ids.push_back(id);
        }
    }
    return ids;
}

void Edits::join(Entry& known, Entry& other) {
    known.steps.insert(known.steps.end(), std::make_move_iterator(other.steps.begin()),
                       std::make_move_iterator(other.steps.end()));
    std::sort(known.steps.begin(), known.steps.end(),
              [](const Step& a, const Step& b) { return a.operationId < b.operationId; });
}

void Edits::rekey(unsigned long oldId, unsigned long newId) {
    if (auto node = _entries.extract(oldId)) {
        node.key() = newId;
        const auto [known, inserted, rest] = _entries.insert(std::move(node));
        if (!inserted) {
            join(known->second, rest.mapped());
        }
    }
    const auto follow = [&](State& state) {
        state.folderId = state.folderId == oldId ? newId : state.folderId;
    };
    for (auto& [id, entry] : _entries) {
        if (entry.served) {
            follow(*entry.served);
        }
        for (Step& step : entry.steps) {
            follow(step.to);
        }
    }
}

}  // namespace Ormek
