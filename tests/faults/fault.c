/* Loaded into a program: fails its n-th allocation, or its n-th call of a kind that can fail, as
 * the record asks (fault_record.h). Processes that the program forks count for themselves; what
 * they execute does not count.
 *
 * Allocates nothing itself, and fails nothing on standard error of the program, where it reports
 * that something failed. */
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "fault_record.h"

/* Macros in some releases of libc. */
#undef fread_unlocked
#undef fwrite_unlocked

/* No declaration in a header: libc's own allocator, which dlsym could not find without it. */
void __libc_free(void* memory);
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

static struct fault_record* record;
static struct fault_process* self;
static struct fault_process overflow; /* of processes that the record has no room for */
static uint8_t children;
static bool is_target;
static bool is_program;
static bool is_counting;
static char loaded[2048];
static char record_path[256];

static void enter_process(const char* path) {
  const uint32_t place = __atomic_fetch_add(&record->process_count, 1, __ATOMIC_SEQ_CST);
  self = place < FAULT_PROCESSES ? &record->processes[place] : &overflow;
  (void)snprintf(self->path, sizeof self->path, "%.*s", FAULT_PATH - 1, path);
  is_target = strcmp(path, record->path) == 0;
  is_program = strcmp(path, "0") == 0;
  children = 0;
}

static void name_child(char* path, size_t size) {
  (void)snprintf(path, size, is_program ? "%.0s%u" : "%s.%u", self->path, children);
}

static void enter_child(void) {
  char path[FAULT_PATH + 4];
  name_child(path, sizeof path);
  enter_process(path);
  self->is_forked = 1;
}

/* Of the program itself, when it is executed once more: loads this module again. */
static char* const* environment_of_child(char* const* environment) {
  static char process[FAULT_PATH + 32];
  static char* words[256] = {loaded, record_path, process};
  char path[FAULT_PATH + 4];
  name_child(path, sizeof path);
  (void)snprintf(process, sizeof process, FAULT_PROCESS "=%s", path);
  size_t count = 3;
  for (; *environment != NULL && count < 255; ++environment) words[count++] = *environment;
  words[count] = NULL;
  return words;
}

static void note_frames(void) {
  void* addresses[FAULT_FRAMES];
  const int count = backtrace(addresses, FAULT_FRAMES);
  for (int i = 0; i < count; ++i) {
    Dl_info info;
    if (dladdr(addresses[i], &info) == 0) continue;
    struct fault_frame* const frame = &record->frames[record->frame_count++];
    const char* const slash = strrchr(info.dli_fname, '/');
    (void)snprintf(frame->object, sizeof frame->object, "%s",
                   slash == NULL ? info.dli_fname : slash + 1);
    frame->offset = (uint64_t)((char*)addresses[i] - (char*)info.dli_fbase);
  }
}

static bool fails(uint32_t kind, const char* function, int error) {
  if (!is_counting) return false;
  const uint32_t number = __atomic_add_fetch(&self->counts[kind], 1, __ATOMIC_SEQ_CST);
  if (!is_target || kind != record->kind || number != record->number) return false;
  (void)snprintf(record->function, sizeof record->function, "%s", function);
  record->error = error;
  note_frames();
  __atomic_store_n(&record->happened, 1, __ATOMIC_SEQ_CST);
  errno = error;
  return true;
}

/* The constructors of the functions below come first. */
__attribute__((constructor(200))) static void start(void) {
  const char* const path = getenv(FAULT_VARIABLE);
  if (path == NULL) return;
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  void* const map = mmap(NULL, sizeof *record, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (fd < 0 || map == MAP_FAILED) abort();
  (void)close(fd);
  (void)snprintf(loaded, sizeof loaded, "LD_PRELOAD=%s", getenv("LD_PRELOAD"));
  (void)snprintf(record_path, sizeof record_path, FAULT_VARIABLE "=%s", path);
  (void)unsetenv("LD_PRELOAD");
  (void)unsetenv(FAULT_VARIABLE);
  /* The first one loads a library. */
  void* address = NULL;
  (void)backtrace(&address, 1);
  record = map;
  const char* const process = getenv(FAULT_PROCESS);
  enter_process(process == NULL ? "0" : process);
  (void)unsetenv(FAULT_PROCESS);
  is_counting = record->is_watched == 0;
}

void fault_watch(int begins) { is_counting = record != NULL && begins != 0; }

static void* count_live(void* memory) {
  if (is_counting && memory != NULL) __atomic_add_fetch(&record->live, 1, __ATOMIC_SEQ_CST);
  return memory;
}

#define ALLOCATION(name, parameters, call) \
  void* name parameters { return fails(FAULT_ALLOC, #name, ENOMEM) ? NULL : count_live(call); }

ALLOCATION(malloc, (size_t size), __libc_malloc(size))
ALLOCATION(calloc, (size_t count, size_t size), __libc_calloc(count, size))
ALLOCATION(aligned_alloc, (size_t alignment, size_t size), __libc_memalign(alignment, size))

int posix_memalign(void** memory, size_t alignment, size_t size) {
  if (fails(FAULT_ALLOC, "posix_memalign", ENOMEM)) return ENOMEM;
  *memory = count_live(__libc_memalign(alignment, size));
  return *memory == NULL ? ENOMEM : 0;
}

void* realloc(void* memory, size_t size) {
  if (fails(FAULT_ALLOC, "realloc", ENOMEM)) return NULL;
  void* const moved = __libc_realloc(memory, size);
  return memory == NULL ? count_live(moved) : moved;
}

void free(void* memory) {
  if (is_counting && memory != NULL) __atomic_sub_fetch(&record->live, 1, __ATOMIC_SEQ_CST);
  __libc_free(memory);
}

#define REAL(result, name, parameters)                              \
  static result(*real_##name) parameters;                           \
  __attribute__((constructor(150))) static void find_##name(void) { \
    void* const found = dlsym(RTLD_NEXT, #name);                    \
    memcpy(&real_##name, &found, sizeof found);                     \
  }

#define CALL_IF(condition, result, name, parameters, arguments, failure, error)                \
  REAL(result, name, parameters)                                                               \
  result name parameters {                                                                     \
    return (condition) && fails(FAULT_CALL, #name, error) ? (failure) : real_##name arguments; \
  }
#define CALL(result, name, parameters, arguments, failure, error) \
  CALL_IF(true, result, name, parameters, arguments, failure, error)

/* A stream remembers that it failed. */
static bool stream_fails(FILE* stream, const char* function, int error) {
  if ((is_program && stream == stderr) || !fails(FAULT_CALL, function, error)) return false;
  stream->_flags |= _IO_ERR_SEEN;
  return true;
}
#define STREAM_CALL(result, name, parameters, arguments, failure, error)           \
  REAL(result, name, parameters)                                                   \
  result name parameters {                                                         \
    return stream_fails(stream, #name, error) ? (failure) : real_##name arguments; \
  }

#define OPENING(name)                                                                    \
  REAL(int, name, (const char* path, int flags, ...))                                    \
  int name(const char* path, int flags, ...) {                                           \
    va_list rest;                                                                        \
    va_start(rest, flags);                                                               \
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0; \
    va_end(rest);                                                                        \
    return fails(FAULT_CALL, #name, EMFILE) ? -1 : real_##name(path, flags, mode);       \
  }
OPENING(open)
OPENING(open64)

/* Files and directories. */
CALL(int, access, (const char* path, int mode), (path, mode), -1, EACCES)
CALL(int, chdir, (const char* path), (path), -1, EACCES)
CALL(int, chmod, (const char* path, mode_t mode), (path, mode), -1, EPERM)
CALL(int, fchdir, (int fd), (fd), -1, EACCES)
CALL(int, flock, (int fd, int operation), (fd, operation), -1, ENOLCK)
CALL(int, fstat64, (int fd, struct stat64* status), (fd, status), -1, EIO)
CALL(int, fsync, (int fd), (fd), -1, EIO)
CALL(char*, getcwd, (char* path, size_t size), (path, size), NULL, ENOENT)
CALL(int, lstat64, (const char* path, struct stat64* status), (path, status), -1, EACCES)
CALL(int, mkdir, (const char* path, mode_t mode), (path, mode), -1, ENOSPC)
CALL(char*, mkdtemp, (char* path), (path), NULL, ENOSPC)
CALL(DIR*, opendir, (const char* path), (path), NULL, EMFILE)
CALL(struct dirent64*, readdir64, (DIR * directory), (directory), NULL, EIO)
CALL(char*, realpath, (const char* path, char* resolved), (path, resolved), NULL, EACCES)
CALL(struct passwd*, getpwnam, (const char* name), (name), NULL, ENOMEM)
CALL(struct group*, getgrgid, (gid_t id), (id), NULL, ENOMEM)
CALL(struct group*, getgrnam, (const char* name), (name), NULL, ENOMEM)
CALL(int, chown, (const char* path, uid_t user, gid_t group), (path, user, group), -1, EPERM)
CALL(int, fchmod, (int fd, mode_t mode), (fd, mode), -1, EPERM)
CALL(int, fchown, (int fd, uid_t user, gid_t group), (fd, user, group), -1, EPERM)
CALL(int, rename, (const char* from, const char* to), (from, to), -1, ENOSPC)
CALL(int, scandir64,
     (const char* path, struct dirent64*** names, int (*filter)(const struct dirent64*),
      int (*compare)(const struct dirent64**, const struct dirent64**)),
     (path, names, filter, compare), -1, EMFILE)
CALL(int, stat64, (const char* path, struct stat64* status), (path, status), -1, EACCES)
CALL(int, tcgetattr, (int fd, struct termios* mode), (fd, mode), -1, EIO)
CALL(int, tcsetattr, (int fd, int when, const struct termios* mode), (fd, when, mode), -1, EIO)
CALL(int, statvfs64, (const char* path, struct statvfs64* status), (path, status), -1, EIO)
CALL(int, symlink, (const char* to, const char* path), (to, path), -1, ENOSPC)
CALL(int, truncate64, (const char* path, off64_t size), (path, size), -1, EIO)
CALL(int, umount, (const char* path), (path), -1, EBUSY)
CALL(int, unlink, (const char* path), (path), -1, EROFS)
CALL(int, unshare, (int flags), (flags), -1, ENOSPC)

/* A flash file system is a directory beside its device. */
REAL(int, mount, (const char*, const char*, const char*, unsigned long, const void*))
int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void* data) {
  if (fails(FAULT_CALL, "mount", EIO)) return -1;
  if (type == NULL || strcmp(type, "jffs2") != 0)
    return real_mount(source, target, type, flags, data);
  char tree[64];
  (void)snprintf(tree, sizeof tree, "%s.tree", source);
  return real_mount(tree, target, NULL, MS_BIND, NULL);
}

/* Reading and writing. */
CALL(ssize_t, read, (int fd, void* bytes, size_t size), (fd, bytes, size), -1, EIO)
CALL(ssize_t, pread64, (int fd, void* bytes, size_t size, off64_t offset),
     (fd, bytes, size, offset), -1, EIO)
CALL_IF(!is_program || fd != STDERR_FILENO, ssize_t, write,
        (int fd, const void* bytes, size_t size), (fd, bytes, size), -1, ENOSPC)
CALL(ssize_t, sendfile64, (int out, int in, off64_t* offset, size_t size), (out, in, offset, size),
     -1, EIO)
CALL(FILE*, fdopen, (int fd, const char* mode), (fd, mode), NULL, ENOMEM)
CALL(FILE*, fopen64, (const char* path, const char* mode), (path, mode), NULL, EMFILE)
STREAM_CALL(ssize_t, getdelim, (char** text, size_t* size, int end, FILE* stream),
            (text, size, end, stream), -1, EIO)
STREAM_CALL(char*, fgets, (char* line, int size, FILE* stream), (line, size, stream), NULL, EIO)
STREAM_CALL(size_t, fread, (void* bytes, size_t size, size_t count, FILE* stream),
            (bytes, size, count, stream), 0, EIO)
STREAM_CALL(size_t, fread_unlocked, (void* bytes, size_t size, size_t count, FILE* stream),
            (bytes, size, count, stream), 0, EIO)
STREAM_CALL(size_t, fwrite, (const void* bytes, size_t size, size_t count, FILE* stream),
            (bytes, size, count, stream), 0, ENOSPC)
STREAM_CALL(size_t, fwrite_unlocked, (const void* bytes, size_t size, size_t count, FILE* stream),
            (bytes, size, count, stream), 0, ENOSPC)
STREAM_CALL(int, fputs, (const char* text, FILE* stream), (text, stream), EOF, ENOSPC)
STREAM_CALL(int, fputs_unlocked, (const char* text, FILE* stream), (text, stream), EOF, ENOSPC)

/* Descriptors and sockets. */
CALL(int, accept4, (int fd, __SOCKADDR_ARG address, socklen_t* size, int flags),
     (fd, address, size, flags), -1, EMFILE)
CALL(int, bind, (int fd, __CONST_SOCKADDR_ARG address, socklen_t size), (fd, address, size), -1,
     ENOSPC)
CALL(int, connect, (int fd, __CONST_SOCKADDR_ARG address, socklen_t size), (fd, address, size), -1,
     EAGAIN)
CALL(int, dup2, (int from, int to), (from, to), -1, EMFILE)
CALL(int, getsockopt, (int fd, int level, int name, void* value, socklen_t* size),
     (fd, level, name, value, size), -1, ENOBUFS)
CALL(int, inotify_add_watch, (int fd, const char* path, uint32_t events), (fd, path, events), -1,
     ENOSPC)
CALL(int, inotify_init1, (int flags), (flags), -1, EMFILE)
CALL(int, listen, (int fd, int backlog), (fd, backlog), -1, EADDRINUSE)
CALL(int, memfd_create, (const char* name, unsigned flags), (name, flags), -1, EMFILE)
CALL(int, pipe, (int ends[2]), (ends), -1, EMFILE)
CALL(int, pipe2, (int ends[2], int flags), (ends, flags), -1, EMFILE)
CALL(int, poll, (struct pollfd * files, nfds_t count, int timeout), (files, count, timeout), -1,
     ENOMEM)
CALL(ssize_t, recv, (int fd, void* bytes, size_t size, int flags), (fd, bytes, size, flags), -1,
     ECONNRESET)
CALL(ssize_t, recvmsg, (int fd, struct msghdr* message, int flags), (fd, message, flags), -1,
     ENOBUFS)
CALL(int, epoll_create1, (int flags), (flags), -1, EMFILE)
CALL(int, epoll_ctl, (int set, int operation, int fd, struct epoll_event* event),
     (set, operation, fd, event), -1, ENOMEM)
CALL(int, epoll_wait, (int set, struct epoll_event* events, int count, int timeout),
     (set, events, count, timeout), -1, EINTR)
CALL(int, sendmmsg, (int fd, struct mmsghdr* messages, unsigned count, int flags),
     (fd, messages, count, flags), -1, ENOBUFS)
CALL(ssize_t, send, (int fd, const void* bytes, size_t size, int flags), (fd, bytes, size, flags),
     -1, ECONNRESET)
CALL(ssize_t, sendmsg, (int fd, const struct msghdr* message, int flags), (fd, message, flags), -1,
     ENOBUFS)
CALL(int, signalfd, (int fd, const sigset_t* signals, int flags), (fd, signals, flags), -1, EMFILE)
CALL(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, EMFILE)

CALL(int, socketpair, (int domain, int type, int protocol, int ends[2]),
     (domain, type, protocol, ends), -1, EMFILE)

/* Processes and threads. */
CALL(int, initgroups, (const char* user, gid_t group), (user, group), -1, EPERM)
CALL(int, setgid, (gid_t group), (group), -1, EPERM)
CALL(int, setpriority, (__priority_which_t which, id_t id, int value), (which, id, value), -1,
     EACCES)
CALL(int, setuid, (uid_t user), (user), -1, EAGAIN)
CALL(int, execvp, (const char* file, char* const* arguments), (file, arguments), -1, ENOMEM)
CALL(FILE*, popen, (const char* command, const char* mode), (command, mode), NULL, EAGAIN)
REAL(int, posix_spawn,
     (pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
      char* const*, char* const*))
int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments,
                char* const* environment) {
  if (fails(FAULT_CALL, "posix_spawn", EAGAIN)) return EAGAIN;
  ++children;
  const bool is_own = self != NULL && strcmp(path, "/proc/self/exe") == 0;
  return real_posix_spawn(pid, path, actions, attributes, arguments,
                          is_own ? environment_of_child(environment) : environment);
}
CALL(int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
     (thread, attributes, run, argument), EAGAIN, EAGAIN)
CALL(pid_t, waitpid, (pid_t child, int* status, int options), (child, status, options), -1, ECHILD)

REAL(pid_t, fork, (void))
pid_t fork(void) {
  if (fails(FAULT_CALL, "fork", EAGAIN)) return -1;
  ++children;
  const pid_t child = real_fork();
  if (child == 0 && self != NULL) enter_child();
  return child;
}

/* Nobody can wait a second time. */
REAL(int, pclose, (FILE*))
int pclose(FILE* stream) {
  const int status = real_pclose(stream);
  return fails(FAULT_CALL, "pclose", ECHILD) ? -1 : status;
}
