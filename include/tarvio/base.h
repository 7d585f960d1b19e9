/* What all public headers of libtarvio share: the rules that hold for every function, and the macros
 * that mark the interface.
 *
 * Rules that hold unless a function says otherwise:
 * - Codes: 0 is success, 1 to 9999 are errno values, 10000 and above are the library's own codes
 *   (see error.h). Codes are signed.
 * - Ownership: strings and records that a function hands out were allocated with malloc and belong to
 *   the caller; the function's block names the call that releases them. Arguments are only read and
 *   stay the caller's.
 * - Null pointers: a function that cannot work without an argument returns EINVAL (22), -1 or null, as
 *   its block says, and touches nothing.
 * - Messages: what a function reports goes to the log (see log.h), never to standard error.
 * - Threads: functions may be called from any thread at any time; those that work on a container or a
 *   record may be called by one thread at a time for that container or record.
 * - Sizes are in bytes, and a line's size counts its line end where it has one.
 * - "Source:" names the unit under which a function logs.
 */
#ifndef TARVIO_BASE_H
#define TARVIO_BASE_H

#ifdef __cplusplus
#define TQ_BEGIN_DECLS _Pragma("GCC visibility push(default)") extern "C" {
#define TQ_END_DECLS \
  }                  \
  _Pragma("GCC visibility pop")
#else
#define TQ_BEGIN_DECLS _Pragma("GCC visibility push(default)")
#define TQ_END_DECLS _Pragma("GCC visibility pop")
#endif

/* Lets the compiler check a printf format against its arguments. */
#define TQ_PRINTF_FORMAT(format_at, arguments_at) \
  __attribute__((format(printf, format_at, arguments_at)))

#endif
