#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::puts("tarviod " TARVIO_VERSION);
    return 0;
  }
  std::fputs("usage: tarviod --version\n", stderr);
  return 2;
}
