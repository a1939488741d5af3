#pragma once

namespace Ormek {

/// One row of an entry's sharing list: plain data, owns nothing.
struct ShareData {
    unsigned long id = 0;       ///< Server id of the share; 0 when it has none yet.
    unsigned long userId = 0;   ///< The user the entry is shared with.
    unsigned long created = 0;  ///< Time stamp, in the service's own unit.
    int access = 0;             ///< Access level granted by this share.
};

inline bool operator==(const ShareData& a, const ShareData& b) {
    return a.id == b.id && a.userId == b.userId && a.created == b.created && a.access == b.access;
}

}  // namespace Ormek
