#include <errno.h>
#include <stdio.h>

#include "base/owners.h"
#include "tarvio/backup.h"
#include "util/log_macros.h"

int tq_create_image_controls(const char* package_name, const char* version) {
  if (package_name == nullptr) return EINVAL;
  TQ_DEBUG("creating control file..");
  const tarvio::File control(fopen("control", "we"));
  if (control == nullptr) return errno;
  (void)fprintf(control.get(), "Package: %s\n", package_name);
  (void)fprintf(control.get(), "Version: %s\n", version == nullptr ? "" : version);
  (void)fprintf(control.get(), "Maintainer: Halvern Corporation\n");

  TQ_DEBUG("create tqcontrol file");
  const tarvio::File tqcontrol(fopen("tqcontrol", "we"));
  if (tqcontrol == nullptr) return errno;
  // Two blanks (oddity 146).
  (void)fprintf(tqcontrol.get(), "TqPackageCategory:  Image\n");
  (void)fprintf(tqcontrol.get(), "TqPackageSubCategory: Image_Other\n");
  return 0;
}
