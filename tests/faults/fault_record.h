/* What the module that injects a fault and the campaign that starts the program have in common: a
 * file that both map. */
#ifndef TARVIO_TESTS_FAULTS_FAULT_RECORD_H
#define TARVIO_TESTS_FAULTS_FAULT_RECORD_H

#include <stdint.h>

enum { FAULT_ALLOC, FAULT_CALL, FAULT_KINDS };
enum { FAULT_PROCESSES = 64, FAULT_PATH = 32, FAULT_FRAMES = 32, FAULT_NAME = 32 };

/* The program itself has the path "0", its forked children "1", "2"..., and those of "1" "1.1"...
 */
struct fault_process {
  char path[FAULT_PATH];
  uint32_t is_forked;           /* rather than the program, executed once more */
  uint32_t counts[FAULT_KINDS]; /* what could have failed in it so far */
};

struct fault_frame {
  char object[FAULT_NAME]; /* the last part of its path */
  uint64_t offset;
};

struct fault_record {
  /* Set by the campaign. */
  uint32_t kind;
  uint32_t number; /* from 1; 0 for no fault */
  char path[FAULT_PATH];
  uint32_t is_watched; /* only what is between two calls of fault_watch counts */
  /* Set by the module. */
  uint32_t process_count;
  struct fault_process processes[FAULT_PROCESSES];
  uint32_t happened;
  int32_t error;
  char function[FAULT_NAME];
  uint32_t frame_count;
  struct fault_frame frames[FAULT_FRAMES];
  int64_t live; /* of a watched stretch: allocations that were not freed */
};

/* The environment variable that names the file. The module takes it and LD_PRELOAD out of the
 * environment: the tools that the program executes are not under test. */
#define FAULT_VARIABLE "TARVIO_FAULT_RECORD"
/* That of the path of a process, for a program that executes itself. */
#define FAULT_PROCESS "TARVIO_FAULT_PROCESS"

/* Exported by the module, for a program that is made to be watched: begins such a stretch, or ends
 * it. */
#ifdef __cplusplus
extern "C"
#endif
    void
    fault_watch(int begins) __attribute__((weak));

#endif
