// Range-for over what the library links: records with a `next`, and the elements of a list. It does
// not move the list's cursor, which belongs to the list's user (oddity 10).
#ifndef TARVIO_SRC_BASE_CHAIN_H
#define TARVIO_SRC_BASE_CHAIN_H

#include "tarvio/list.h"

namespace tarvio {

template <typename Record>
struct Chain {
  struct Iterator {
    Record* at;
    Record& operator*() const { return *at; }
    Iterator& operator++() {
      at = at->next;
      return *this;
    }
    bool operator==(const Iterator& other) const { return at == other.at; }
  };

  Record* first;

  Iterator begin() const { return {first}; }
  Iterator end() const { return {nullptr}; }
};

// The elements of a list from a node on, as pointers to Element. The walk ends at an element that
// is null, as every walk of a list does (oddity 11).
template <typename Element>
struct Elements {
  struct Iterator {
    const tq_list_node* at;
    Element* operator*() const { return static_cast<Element*>(at->element); }
    Iterator& operator++() {
      at = with_element(at->next);
      return *this;
    }
    bool operator==(const Iterator& other) const { return at == other.at; }
  };

  explicit Elements(const tq_list_t* list) : first(list->head) {}
  explicit Elements(const tq_list_node* node) : first(node) {}

  Iterator begin() const { return {with_element(first)}; }
  Iterator end() const { return {nullptr}; }

  static const tq_list_node* with_element(const tq_list_node* node) {
    return node != nullptr && node->element != nullptr ? node : nullptr;
  }

  const tq_list_node* first;
};

}  // namespace tarvio

#endif
