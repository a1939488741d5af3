#include "model/ObjectUpdater.h"

namespace Ormek {

ObjectUpdater::~ObjectUpdater() = default;

}  // namespace Ormek
