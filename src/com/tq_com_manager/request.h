// The request side of the protocol: reading the lines of one connection under a deadline.
#ifndef TARVIO_SRC_COM_TQ_COM_MANAGER_REQUEST_H
#define TARVIO_SRC_COM_TQ_COM_MANAGER_REQUEST_H

#include <stdio.h>

#include "base/deadline.h"
#include "base/owners.h"

namespace tarvio {

// The lines that count: the first two, null when they did not come. All others are read and
// dropped.
struct Request {
  CString command;
  CString name;
};

// Reads all lines up to the end of data from a stream over a descriptor that does not block. False
// when the deadline passed first or memory ran out: the request is not to be executed then.
bool read_request(FILE* stream, const Deadline& deadline, Request& request);

}  // namespace tarvio

#endif
