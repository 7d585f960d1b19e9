// A list of strings that a test hands to the library.
#ifndef TARVIO_TESTS_SUPPORT_STRING_LIST_H
#define TARVIO_TESTS_SUPPORT_STRING_LIST_H

#include <cstring>
#include <string>
#include <vector>

#include "tarvio/list.h"

namespace tarvio_test {

// Frees the list with its strings at the end of the scope.
class StringList {
 public:
  StringList() : list_(tq_list_create()) {}
  ~StringList() { tq_list_free(list_, 1); }
  StringList(const StringList&) = delete;
  StringList& operator=(const StringList&) = delete;

  tq_list_t* get() const { return list_; }
  void add(const char* text) { tq_list_add(list_, ::strdup(text)); }
  std::vector<std::string> texts() const {
    std::vector<std::string> texts;
    for (const tq_list_node* node = list_->head; node != nullptr; node = node->next)
      texts.emplace_back(static_cast<const char*>(node->element));
    return texts;
  }

 private:
  tq_list_t* list_;
};

}  // namespace tarvio_test

#endif
