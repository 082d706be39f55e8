#ifndef HOST_BASE_PRECOMPILED_H
#define HOST_BASE_PRECOMPILED_H

/* What most of the host includes anyway, compiled once.  A source still includes what it uses
   itself; script/lint reads it without this. */

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#endif
