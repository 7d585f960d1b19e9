#include "managed.h"
