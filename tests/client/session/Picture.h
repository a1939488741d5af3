#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "client/Event.h"
#include "model/Item.h"

namespace Ormek::Testing {

/// What a front end that listens to a client's events, and sees some of its answers, believes to be
/// there. Throws Broken when it is told what cannot be true: that something changes which was
/// otherwise, that something leaves which is not there, or comes which is there already.
class Picture {
  public:
    void take(const EntryAdded& event);
    void take(const EntryRemoved& event);
    void take(const EntryChanged& event);
    void take(const EntryIdChanged& event);

    /// An answer shows this entry now.
    void see(unsigned long id, const EntryValues& values);
    /// Pages have been delivered since: what was gone may have come back without a word, since the
    /// first delivery of a page tells of none of its entries.
    void doubtAbsence();

    /// As far as was told.
    bool isGone(unsigned long id) const;
    /// It was gone, and may have come back without a word.
    bool mayBeBack(unsigned long id) const;
    /// What is believed to be there.
    std::map<unsigned long, EntryValues> present() const;
    /// Empty when nothing is believed to be there under that id.
    std::optional<EntryValues> valuesOf(unsigned long id) const;

  private:
    void expectSame(unsigned long id, const EntryValues& was, const char* event) const;

    std::map<unsigned long, std::optional<EntryValues>> _entries;  // Empty ones are gone.
    std::set<unsigned long> _doubted;                              // Of these.
};

/// What an entry says.
EntryValues valuesOf(const Item& item);
std::string toText(const EntryValues& values);

}  // namespace Ormek::Testing
