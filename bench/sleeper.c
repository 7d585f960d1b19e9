#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

/* Ends with the manager, which a benchmark kills. */
int main(void) {
  (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) (void)pause();
}
