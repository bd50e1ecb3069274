#include "templlinkedlist.h"

#include <cstddef>

template class QOR::TemplLinkedList<char*>;

namespace {

using List = QOR::TemplLinkedList<char*>;

// Programs walk lists by these offsets. Both compilers know them in a class with virtual functions,
// though the standard leaves that to them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(List, head) == sizeof(void*) && offsetof(List, tail) == 2 * sizeof(void*) &&
              offsetof(List, count) == 3 * sizeof(void*) &&
              offsetof(List, onExit) == 3 * sizeof(void*) + 4 &&
              sizeof(List) == 3 * sizeof(void*) + 8);
static_assert(offsetof(List::Element, data) == sizeof(void*) &&
              offsetof(List::Element, next) == 2 * sizeof(void*) &&
              sizeof(List::Element) == 3 * sizeof(void*));
#pragma GCC diagnostic pop

} // namespace
