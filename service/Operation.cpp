#include "service/Operation.h"

namespace Nimra {

Operation::~Operation() = default;

unsigned long Operation::id() const { return _id; }

}  // namespace Nimra
