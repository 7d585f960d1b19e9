#include <errno.h>
#include <string.h>

#include <span>

#include "base/owners.h"
#include "tarvio/conf.h"

static_assert(offsetof(tq_conf, pairs) == sizeof(void*));

namespace {

std::span<tq_conf_pair> pairs_of(const tq_conf& conf) {
  return {conf.pairs, static_cast<size_t>(conf.count)};
}

tq_conf_pair* find_pair(const tq_conf& conf, const char* name) {
  for (tq_conf_pair& pair : pairs_of(conf)) {
    if (strcmp(pair.name, name) == 0) return &pair;
  }
  return nullptr;
}

}  // namespace

const char* tq_conf_read(const tq_conf* conf, const char* name) {
  const tq_conf_pair* pair = conf == nullptr || name == nullptr ? nullptr : find_pair(*conf, name);
  return pair == nullptr ? "" : pair->value;
}

int tq_conf_write(tq_conf* conf, const char* name, const char* value) {
  if (conf == nullptr || name == nullptr || value == nullptr) return EINVAL;
  // First, because the value may be the one that it replaces.
  tarvio::CString value_copy = tarvio::copy_of(value);
  if (value_copy == nullptr) return ENOMEM;
  if (tq_conf_pair* pair = find_pair(*conf, name); pair != nullptr) {
    free(pair->value);
    pair->value = value_copy.release();
    return 0;
  }

  tarvio::CString name_copy = tarvio::copy_of(name);
  if (name_copy == nullptr) return ENOMEM;
  const auto count = static_cast<size_t>(conf->count);
  void* grown = realloc(conf->pairs, (count + 1) * sizeof(tq_conf_pair));
  if (grown == nullptr) return ENOMEM;
  conf->pairs = static_cast<tq_conf_pair*>(grown);
  conf->pairs[count] = {.name = name_copy.release(), .value = value_copy.release()};
  ++conf->count;
  return 0;
}

int32_t tq_count_variables(const tq_conf* conf) { return conf == nullptr ? 0 : conf->count; }

const char* tq_find_name(const tq_conf* conf, int32_t index) { return conf->pairs[index].name; }

const char* tq_find_value(const tq_conf* conf, int32_t index) { return conf->pairs[index].value; }

int tq_conf_close(tq_conf* conf) {
  if (conf == nullptr) return 0;
  for (const tq_conf_pair& pair : pairs_of(*conf)) {
    free(pair.name);
    free(pair.value);
  }
  free(conf->pairs);
  free(conf);
  return 0;
}
