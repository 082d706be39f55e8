#include "host/base/precompiled.h"
