// What nearly every test uses.
#pragma once

#include <gtest/gtest.h>
#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <span>
#include <string>
#include <tuple>

#include "support/data.h"
#include "support/guarded.h"
#include "vekdc.h"
