#pragma once

#include <string>
#include <vector>

#include "tests/support/CacheModel.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {

// From the model's plain data to the real thing.

Nimra::Document documentOf(const ModelRecord& plain);
Nimra::Folder folderOf(const ModelRecord& plain);
Nimra::Tag tagOf(const ModelRecord& plain);
FilterInternal filterOf(const ModelFilter& plain);

// And back, as text.

std::string describeReal(const Item& item);
std::string describeReal(const Nimra::Document& document, unsigned int kind,
                         const std::string& service, const std::string& protocol);
std::string describeReal(const Nimra::ItemFilter& filter);
std::string describeReal(const Nimra::Folder& folder);
std::string describeFolder(const ModelRecord& folder);

}  // namespace Ormek::Testing
