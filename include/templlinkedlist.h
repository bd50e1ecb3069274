/**
 * @file templlinkedlist.h
 * TemplLinkedList: a singly linked list of pointers that releases what they point to in one of four
 * ways, or not at all.
 *
 *     QOR::TemplLinkedList<char*> names;
 *     names.FreeDataOnExit();
 *     names.Add(strdup("first"));
 *     for (auto* element = names.head; element != nullptr; element = element->next) {
 *         use(element->data);
 *     }
 *
 * A list is used by one thread at a time.
 */
#pragma once

#include <cstdlib>
#include <new>
#include <type_traits>

#include "qorapi.h"

namespace QOR {

/**
 * The list.
 * @tparam T a pointer to a complete type that is not const. The library holds the lists of `char*`
 *         and of `HTTPVALUE*` (httpvalue.h); those of other types are compiled where they are used.
 */
template <class T>
class QOR_API TemplLinkedList {
    static_assert(std::is_pointer_v<T>, "a list holds pointers");

public:
    /** What becomes of the data when elements are cleared: the values of `onExit`. */
    enum OnExit : unsigned int {
        leaveData = 0,       /**< it stays the caller's */
        deleteData = 1,      /**< released with delete */
        deleteArrayData = 2, /**< released with delete[] */
        freeData = 3,        /**< released with free */
    };

    /** One link of the chain. Its destructor does nothing to the data. */
    class QOR_API Element {
    public:
        /** A link of its own, in no chain yet. */
        explicit Element(T elementData) : data(elementData) {}
        virtual ~Element();

        /** Does nothing; for derived elements to describe themselves. */
        virtual void dump(char* /*buffer*/, unsigned int /*level*/) {}

        T data;                  /**< what the caller added */
        Element* next = nullptr; /**< null at the end of the list */
    };

    /** An empty list that deletes its data. */
    TemplLinkedList();

    /** Clears the list. */
    virtual ~TemplLinkedList() {
        TemplLinkedList::Clear();
    }

    TemplLinkedList(const TemplLinkedList&) = delete;
    TemplLinkedList& operator=(const TemplLinkedList&) = delete;

    /**
     * Empties the list: from the head on releases the data of each element as `onExit` says, then
     * the element. `onExit` keeps its value.
     */
    virtual void Clear();

    /**
     * Appends an element at the tail.
     * @param data from now on released with the list, unless `onExit` says otherwise; may be null
     * @return 1; 0 without memory, and the list is then unchanged
     */
    virtual signed char Add(T data);

    /**
     * Takes the first element whose data is this pointer out of the list. Neither the data nor the
     * element is released: the data is the caller's again, and so is the element, which is lost
     * unless the caller kept a pointer to it. It still has its `next`.
     * @return 1; 0 when there is none, and the list is then unchanged
     */
    virtual signed char Del(T data);

    /**
     * Takes an element out of the list as `Del(element->data)` does: the first one with that data.
     * @return 1; 0 for null, or when no element has that data
     */
    virtual signed char Del(Element* element);

    /** Calls each element's `dump` in the order of the list, one level deeper. */
    virtual void dump(char* buffer, unsigned int level);

    /** @name What becomes of the data, also of that which was added before
     *  @{ */
    /** It stays the caller's. */
    virtual void LeaveDataOnExit() {
        onExit = leaveData;
    }
    /** It is released with delete. */
    virtual void DeleteDataOnExit() {
        onExit = deleteData;
    }
    /** It is released with delete[]. */
    virtual void DeleteArrayDataOnExit() {
        onExit = deleteArrayData;
    }
    /** It is released with free. */
    virtual void FreeDataOnExit() {
        onExit = freeData;
    }
    /** @} */

    /** @name Fields, in fixed order. For walking; changing is done by the operations.
     *  @{ */
    Element* head = nullptr;          /**< first element, or null */
    Element* tail = nullptr;          /**< last element, or null */
    unsigned int count = 0;           /**< number of elements */
    unsigned int onExit = deleteData; /**< one of `OnExit` */
    /** @} */
};

template <class T>
TemplLinkedList<T>::TemplLinkedList() = default;

template <class T>
TemplLinkedList<T>::Element::~Element() = default;

template <class T>
void TemplLinkedList<T>::Clear() {
    while (head != nullptr) {
        Element* const first = head;
        head = first->next;
        switch (onExit) {
        case freeData:
            free(first->data);
            break;
        case deleteArrayData:
            delete[] first->data;
            break;
        case deleteData:
            delete first->data;
            break;
        default:
            break;
        }
        delete first;
    }
    tail = nullptr;
    count = 0;
}

template <class T>
signed char TemplLinkedList<T>::Add(T data) {
    Element* const added = new (std::nothrow) Element(data);
    if (added == nullptr) {
        return 0;
    }
    (tail == nullptr ? head : tail->next) = added;
    tail = added;
    ++count;
    return 1;
}

template <class T>
signed char TemplLinkedList<T>::Del(T data) {
    Element* previous = nullptr;
    Element* found = head;
    while (found != nullptr && found->data != data) {
        previous = found;
        found = found->next;
    }
    if (found == nullptr) {
        return 0;
    }
    (previous == nullptr ? head : previous->next) = found->next;
    if (found == tail) {
        tail = previous;
    }
    --count;
    // Kept: the element is not released. Callers hold pointers to elements and own what they take
    // out.
    return 1;
}

template <class T>
signed char TemplLinkedList<T>::Del(Element* element) {
    return element == nullptr ? static_cast<signed char>(0) : Del(element->data);
}

template <class T>
void TemplLinkedList<T>::dump(char* buffer, unsigned int level) {
    for (Element* element = head; element != nullptr; element = element->next) {
        element->dump(buffer, level + 1);
    }
}

extern template class TemplLinkedList<char*>;

} // namespace QOR
