#include <errno.h>

#include "tarvio/error.h"

// 10303 has the text of 10302 (oddity 6), and 10304 has no row (oddity 7).
const tq_err_code tq_err_code_map[TQ_ERR_CODE_MAP_SIZE] = {
    {TQ_ERR_BOOT, "Tarvio boot failed."},
    {TQ_ERR_STATUS_INIT, "_Tarvio status manager init failed."},
    {TQ_ERR_STATUS_FIND_ALL, "_Tarvio status manager find all status failed."},
    {TQ_ERR_STATUS_FIND_BY_STATUS, "_Tarvio status manager find by status failed."},
    {TQ_ERR_STATUS_FIND_BY_TYPE, "_Tarvio status manager find by type failed."},
    {TQ_ERR_STATUS_ADD, "_Tarvio status manager add status failed."},
    {TQ_ERR_STATUS_ADD_ID, "_Tarvio status manager add status id failed."},
    {TQ_ERR_STATUS_REMOVE, "_Tarvio status manager remove status failed."},
    {TQ_ERR_STATUS_CHANGE, "_Tarvio status manager change status failed."},
    {TQ_ERR_STATUS_MEMORY, "_Tarvio status utility memory allocation failed."},
    {TQ_ERR_LOG_INIT, "_Tarvio log manager init failed."},
    {TQ_ERR_LOG_CHANGE_STATUS, "_Tarvio log manager change status failed."},
    {TQ_ERR_PACKAGE_MALFORMED, "Tarvio malformed package error."},
    {TQ_ERR_PACKAGE_DEPENDENCY, "Tarvio package dependency error."},
    {TQ_ERR_PACKAGE_NO_SPACE, "Tarvio package dependency error."},
    {TQ_ERR_PACKAGE_OTHER, "Tarvio package other error."},
};

const char* const opkgmes[TQ_OPKG_MESSAGES] = {
    "Permission denied.",
    "Malformed",
    "Failed to extract",
    "Cannot install package",
    "Cannot satisfy the following dependencies",
    "The following packages conflict with",
    "is depended upon by packages",
    "kb available on filesystem",
    "is unsupported.",
    "No packages removed.",
    "Failed to determine installed",
    "Collected errors",
};

const int32_t opkgerr[TQ_OPKG_MESSAGES] = {
    EACCES,
    TQ_ERR_PACKAGE_MALFORMED,
    TQ_ERR_PACKAGE_MALFORMED,
    TQ_ERR_PACKAGE_MALFORMED,
    TQ_ERR_PACKAGE_DEPENDENCY,
    TQ_ERR_PACKAGE_DEPENDENCY,
    TQ_ERR_PACKAGE_DEPENDENCY,
    TQ_ERR_PACKAGE_NO_SPACE,
    TQ_ERR_PACKAGE_UNSUPPORTED,
    ENOPKG,
    EINVAL,
    TQ_ERR_PACKAGE_OTHER,
};
