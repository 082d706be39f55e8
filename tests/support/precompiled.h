#ifndef MLIST_TESTS_SUPPORT_PRECOMPILED_H
#define MLIST_TESTS_SUPPORT_PRECOMPILED_H

/* What most tests include anyway, compiled once.  A test still includes what it uses itself. */

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#endif
