#pragma once

#include <map>
#include <string>
#include <vector>

#include "model/ShareData.h"

namespace Nimra {

/// What the records exchanged with the service layer have in common. Records are values; copies
/// are deep. Members described as carried along pass through the cache unread.
class PelData {
  public:
    PelData(std::string entryName, int dataType);
    explicit PelData(int dataType);
    PelData(const PelData&) = default;
    PelData(PelData&&) = default;
    PelData& operator=(const PelData&) = default;
    PelData& operator=(PelData&&) = default;
    virtual ~PelData();

    std::string name;       ///< Display name: any bytes.
    std::string reference;  ///< Carried along.
    unsigned char type;     ///< 4 document, 8 folder, 16 tag.
    std::map<unsigned long, std::vector<Ormek::ShareData>> shares;  ///< By user id.
};

}  // namespace Nimra
