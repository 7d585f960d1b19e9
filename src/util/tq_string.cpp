#include "tarvio/text.h"

#include <stdlib.h>
#include <string.h>

#include "base/owners.h"

// A carriage return counts only before a line feed (oddity 17).
char* tq_chop(char* string) {
  if (string == nullptr) return nullptr;
  size_t length = strlen(string);
  if (length == 0 || string[length - 1] != '\n') return string;
  string[--length] = '\0';
  if (length > 0 && string[length - 1] == '\r') string[length - 1] = '\0';
  return string;
}

// A string does not start with itself (oddity 16).
int tq_str_startwith(const char* string, const char* prefix) {
  if (string == nullptr || prefix == nullptr) return 0;
  const size_t length = strlen(prefix);
  return strncmp(string, prefix, length) == 0 && string[length] != '\0' ? 1 : 0;
}

int tq_str_equals(const char* a, const char* b) {
  return a != nullptr && b != nullptr && strcmp(a, b) == 0 ? 1 : 0;
}

char* tq_memmove(char* string, uint32_t shift) {
  if (string == nullptr) return nullptr;
  const auto distance = static_cast<int32_t>(shift);
  memmove(string + distance, string, strlen(string) + 1);
  return string + distance;
}

char* tq_replace_string(char* string, const char* old_text, const char* new_text) {
  if (string == nullptr || old_text == nullptr || new_text == nullptr || *old_text == '\0') {
    return string;
  }
  const size_t old_length = strlen(old_text);
  const size_t new_length = strlen(new_text);
  const auto shift = static_cast<uint32_t>(new_length - old_length);
  for (char* at = strstr(string, old_text); at != nullptr; at = strstr(at, old_text)) {
    tq_memmove(at + old_length, shift);
    memcpy(at, new_text, new_length);
    at += new_length;
  }
  return string;
}

// The copies return 0 without memory as well; the null pointer shows it (oddity 20).

int tq_memdup(void** out, const void* source, uint32_t size) {
  if (out == nullptr) return 0;
  *out = source == nullptr ? nullptr : malloc(size);
  if (*out != nullptr) memcpy(*out, source, size);
  return 0;
}

int tq_strdup(char** out, const char* string) {
  if (out != nullptr) *out = tarvio::copy_of(string).release();
  return 0;
}

char** tq_strtok(const char* string, const char* delimiters) {
  if (string == nullptr || delimiters == nullptr) return nullptr;
  // Leading delimiters are not copied, so that the first token begins the copy and whoever frees
  // that token frees the copy (oddity 21).
  tarvio::CString copy = tarvio::copy_of(string + strspn(string, delimiters));
  if (copy == nullptr) return nullptr;
  const size_t most = (strlen(copy.get()) + 1) / 2;  // each token is followed by a delimiter
  auto** tokens = static_cast<char**>(malloc((most + 1) * sizeof(char*)));
  if (tokens == nullptr) return nullptr;

  size_t count = 0;
  char* rest = nullptr;
  for (char* token = strtok_r(copy.get(), delimiters, &rest); token != nullptr;
       token = strtok_r(nullptr, delimiters, &rest)) {
    tokens[count++] = token;
  }
  tokens[count] = nullptr;
  if (count > 0) (void)copy.release();
  return tokens;
}
