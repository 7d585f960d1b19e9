/* All of libtarvio. */
#ifndef TARVIO_TARVIO_H
#define TARVIO_TARVIO_H

#include "tarvio/app.h"
#include "tarvio/archive.h"
#include "tarvio/backup.h"
#include "tarvio/base.h"
#include "tarvio/client.h"
#include "tarvio/com.h"
#include "tarvio/conf.h"
#include "tarvio/error.h"
#include "tarvio/file.h"
#include "tarvio/list.h"
#include "tarvio/log.h"
#include "tarvio/log_monitor.h"
#include "tarvio/nand.h"
#include "tarvio/opkg.h"
#include "tarvio/package.h"
#include "tarvio/process.h"
#include "tarvio/repairs.h"
#include "tarvio/status.h"
#include "tarvio/status_manager.h"
#include "tarvio/table.h"
#include "tarvio/tbx.h"
#include "tarvio/text.h"

#endif
