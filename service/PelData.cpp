#include "service/PelData.h"

#include <utility>

namespace Nimra {

PelData::PelData(std::string entryName, int dataType)
    : name(std::move(entryName)), type(static_cast<unsigned char>(dataType)) {}

PelData::PelData(int dataType) : type(static_cast<unsigned char>(dataType)) {}

PelData::~PelData() = default;

}  // namespace Nimra
