#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Ormek {

/// Room for one more, with the growth that push_back has, so that what follows cannot fail. Changes
/// nothing when memory runs out.
template <class Element>
void makeRoom(std::vector<Element>& elements) {
    if (elements.size() == elements.capacity()) {
        elements.reserve(std::max<std::size_t>(1, 2 * elements.size()));
    }
}

}  // namespace Ormek
