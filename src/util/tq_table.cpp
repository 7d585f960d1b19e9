#include "tarvio/table.h"

#include <errno.h>
#include <string.h>

#include "base/chain.h"
#include "base/list_appender.h"
#include "base/owners.h"

namespace {

char* key_of(void* element) {
  return element == nullptr ? nullptr : static_cast<tq_table_pair*>(element)->key;
}

}  // namespace

tq_table* tq_table_create(void) {
  tarvio::Allocated<tq_table> table = tarvio::allocate<tq_table>();
  if (table == nullptr) return nullptr;
  table->pairs = tq_list_create();
  return table->pairs == nullptr ? nullptr : table.release();
}

// Equal keys are not looked for (oddity 13), and a pair for which memory runs out is not reported
// (oddity 14).
int tq_table_put(tq_table* table, char* key, void* value) {
  if (table == nullptr) return EINVAL;
  tarvio::Allocated<tq_table_pair> pair = tarvio::allocate<tq_table_pair>();
  if (pair == nullptr) return 0;
  *pair = {.key = key, .value = value};
  if (tarvio::ListAppender(*table->pairs).append(pair.get())) (void)pair.release();
  return 0;
}

// With the list's cursor, which the caller sees move (oddity 10).
void* tq_table_get(tq_table* table, const char* key) {
  if (table == nullptr || key == nullptr) return nullptr;
  for (void* at = tq_list_first(table->pairs); at != nullptr; at = tq_list_next(table->pairs)) {
    const auto* pair = static_cast<const tq_table_pair*>(at);
    if (pair->key != nullptr && strcmp(pair->key, key) == 0) return pair->value;
  }
  return nullptr;
}

char* tq_table_first(tq_table* table) {
  return table == nullptr ? nullptr : key_of(tq_list_first(table->pairs));
}

char* tq_table_next(tq_table* table) {
  return table == nullptr ? nullptr : key_of(tq_list_next(table->pairs));
}

int32_t tq_table_size(const tq_table* table) { return table == nullptr ? 0 : table->pairs->count; }

// Pairs cannot be removed (oddity 15).
int tq_table_remove(tq_table* /*table*/, const char* /*key*/) { return 0; }

int tq_table_free(tq_table* table, int free_pairs) {
  if (table == nullptr) return 0;
  if (free_pairs != 0) {
    for (tq_table_pair* pair : tarvio::Elements<tq_table_pair>(table->pairs)) {
      free(pair->key);
      free(pair->value);
    }
  }
  tq_list_free(table->pairs, 1);
  free(table);
  return 0;
}
