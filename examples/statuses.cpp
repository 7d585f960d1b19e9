// Lists the installed applications and the statuses that the resident manager keeps, as statuses.c
// does.
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <tarvio/tarvio.hpp>

static int fail(const char* what, const std::error_code& error) {
  std::fprintf(stderr, "%s: %s\n", what, error.message().c_str());
  return EXIT_FAILURE;
}

int main() {
  std::error_code error;
  for (const auto& package : tarvio::packages(tarvio::Category::kApplication, error)) {
    std::printf("installed: %s %s\n", package.name.c_str(), package.version.c_str());
  }
  if (error) return fail("cannot list the packages", error);

  for (const tarvio::Status& status : tarvio::Manager().application_statuses(error)) {
    std::printf("%s: state %d, %s\n", status.name.c_str(), static_cast<int>(status.state),
                status.detail.c_str());
  }
  if (error) return fail("cannot ask the manager", error);
  return EXIT_SUCCESS;
}
