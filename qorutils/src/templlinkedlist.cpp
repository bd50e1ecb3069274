#include "templlinkedlist.h"

template class QOR::TemplLinkedList<char*>;
