/* Interprocess communication: Unix-domain stream sockets, the com server, the two client primitives,
 * and the request protocol of the resident manager. Sockets are close-on-exec, and nothing here raises
 * SIGPIPE. */
#ifndef TARVIO_COM_H
#define TARVIO_COM_H

#include <pthread.h>
#include <stdint.h>

#include "tarvio/base.h"
#include "tarvio/list.h"

/* Where the resident manager answers. */
#define TQ_COM_SOCKET_PATH "/usr/local/share/tarvio/ipcom"

/* Serves one connection: takes over the client socket and closes it. Its result is not used. */
typedef uint32_t (*tq_com_handler_func)(int32_t fd);

/* A server. Created by tq_setup_com_server and never freed. Its socket becomes -1 if the set-up fails
 * and when a later server gets the same number. */
typedef struct tq_com_server {
  char *path;                  /* owned */
  int32_t fd;                  /* listening socket */
  tq_com_handler_func handler; /* called once per connection */
  pthread_t thread;            /* filled by tq_wait_com */
} tq_com_server;

/* A request that a host answers beside those of the protocol, see tq_set_com_words. */
typedef struct tq_com_word {
  const char *word; /* first line of the request */
  int (*serve)(
      const char *name);     /* gets the second line, or null; its result is the reply's code */
  const char *(*rest)(void); /* gives what follows the code, from its line feed on, after serve has
                                     returned; null for two line feeds */
} tq_com_word;

TQ_BEGIN_DECLS

/* Returns a new stream socket, or -1 with errno.
 * Source: util/tq_unix_sock */
int tq_socket_create_unix_sock(void);

/* Binds a socket to a path and listens on it with a backlog of 5. Whatever is at the path is removed
 * first, and its mode becomes 0666, so that every local user may connect.
 *
 * path  at most 108 bytes.
 *
 * Returns the result of listen, 0 or -1; a failed bind shows in it. A longer or null path: -1 with errno
 * ENAMETOOLONG or EINVAL, and nothing is touched.
 * Source: util/tq_unix_sock */
int tq_socket_bind_unix_server_sock(int fd, const char *path);

/* Accepts one connection. Returns its socket, or -1 with errno.
 * Source: util/tq_unix_sock */
int tq_socket_accept_unix_sock(int fd);

/* Connects a socket to a path of at most 108 bytes. Returns 0, or -1 with errno (ENAMETOOLONG for a
 * longer path).
 * Source: util/tq_unix_sock */
int tq_socket_connect_unix_sock(int fd, const char *path);

/* Closes a socket. Returns the result of close.
 * Source: util/tq_unix_sock */
int tq_socket_close(int fd);

/* Creates a server: binds and listens, but does not serve yet.
 *
 * path     at most 108 bytes; whatever is there is removed.
 * handler  called for each connection.
 *
 * Returns the listening socket, or a negative number with errno (EINVAL for a null argument,
 * ENAMETOOLONG for a longer path). One thread at a time.
 * Source: util/tq_interprocess_com */
int tq_setup_com_server(const char *path, tq_com_handler_func handler);

/* Starts a detached thread that serves the connections of a server one after the other, for the life of
 * the process.
 *
 * fd  what tq_setup_com_server returned.
 *
 * Returns 0, the code of pthread_create, or EINVAL (22) if no server has this socket. Not while
 * another thread sets up a server.
 * Source: util/tq_interprocess_com */
int tq_wait_com(int fd);

/* The body of that thread; never returns. A failed accept is retried, after a tenth of a second unless
 * the connection itself was at fault.
 *
 * server  a tq_com_server.
 * Source: util/tq_interprocess_com */
void *tq_com_handler(void *server);

/* Closes a descriptor, which does not stop the server's thread. Returns the result of close.
 * Source: util/tq_interprocess_com */
int tq_stop_com_server(int fd);

/* Sends a request: one line, then one line per argument, and shuts down the sending side.
 *
 * path     the server's socket, at most 108 bytes.
 * request  first line, without its line end.
 * count    number of arguments.
 * args     their strings; may be null when count is 0.
 *
 * Waits while the server's backlog is full.
 *
 * Returns a socket to read the reply from and to close; if nobody listens, it is not connected and
 * reading it gives no data. Negative with errno if a socket or memory is not available, the path is too
 * long (ENAMETOOLONG), or the path, the request or an argument is null (EINVAL).
 * Source: util/tq_interprocess_com */
int tq_request_com(const char *path, const char *request, int count, const char *const *args);

/* Reads the lines of a reply up to the end of data.
 *
 * lines  list to append to; strings, to be freed with tq_list_free(lines, 1). A line ends at a line feed,
 *        which is cut off, or at a carriage return, which stays; one of 255 bytes or more comes in pieces
 *        of 254.
 *
 * Returns errno as it is when reading ends: at a clean end that is its value before the call, so set it
 * to 0 first to distinguish the two. ENOMEM (12) if memory runs out, with the lines so far; EINVAL (22)
 * for a null list.
 * Source: util/tq_interprocess_com */
int tq_receive_com(int fd, tq_list_t *lines);

/* Makes the resident manager answer on TQ_COM_SOCKET_PATH. The host calls it once, last in its
 * start-up.
 *
 * Returns 0, a negative number if the server cannot be created, or the code of pthread_create.
 * Source: com/tq_com_manager */
int tq_setup_com_manager(void);

/* Sets the words that tq_request_handler answers beside those of the protocol, which come first. The
 * host calls it before tq_setup_com_manager. Without it, any other word is answered with nothing.
 *
 * words  table that ends with a null word, which must stay; null for none. "start_exact" and
 *        "stop_exact" with tq_start_app_exact and tq_stop_app_exact of app.h are what tarvio asks for.
 * Source: com/tq_com_manager */
void tq_set_com_words(const tq_com_word *words);

/* Serves one connection: reads the request, executes it, writes the reply and closes the socket.
 *
 * Request: lines that end with a line feed, up to the end of data; the first is the command, the second
 * the application's name for start_app and stop_app. Replies:
 *   status_all, status_app   three lines per status: name, state in decimal, detail
 *   start_app, start_all, stop_app
 *                            result code in decimal and two line feeds (stop_app without a name: none)
 *   stop_all                 result code in decimal and one line feed
 *   words of tq_set_com_words
 *                            result code in decimal and two line feeds
 *   anything else            none
 * A request must be complete within 5 seconds, or it is not executed. Each write of a reply (at most
 * 4096 bytes) must finish within 5 seconds as well: a client that does not read it gets no more.
 *
 * Every status reply leaves one record of the list allocated. A failed shutdown or close is not logged:
 * perror reports it, and "fd is " and the socket go to standard output.
 *
 * Returns 0, or the errno value of a failed close.
 * Source: com/tq_com_manager */
uint32_t tq_request_handler(int32_t fd);

TQ_END_DECLS

#endif
