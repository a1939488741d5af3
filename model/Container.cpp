#include "model/Container.h"

#include "model/ContainerInternal.h"

namespace Ormek {

Container::Container() = default;

Container::Container(const Container& other)
    : Item(other), _snapshot(std::make_unique<ContainerInternal>(other, nullptr)) {}

Container& Container::operator=(const Container& other) {
    if (this != &other) {
        _snapshot = std::make_unique<ContainerInternal>(other, nullptr);
    }
    return *this;
}

Container::~Container() = default;

}  // namespace Ormek
