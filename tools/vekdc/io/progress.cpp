#include "tools/vekdc/io/progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace vekdc {
namespace {

constexpr auto kFirst = std::chrono::milliseconds(300);
constexpr auto kInterval = std::chrono::milliseconds(100);

std::string clockText(double seconds) {
    const auto whole = static_cast<unsigned long>(std::min(seconds, 359999.0));
    std::array<char, 32> text{};
    if (whole >= 3600) {
        std::snprintf(text.data(), text.size(), "%lu:%02lu:%02lu", whole / 3600, whole / 60 % 60,
                      whole % 60);
    } else {
        std::snprintf(text.data(), text.size(), "%lu:%02lu", whole / 60, whole % 60);
    }
    return text.data();
}

}  // namespace

std::string sizeText(uint64_t bytes) {
    static constexpr std::array units = {"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1000 && unit + 1 < units.size()) {
        value /= 1000;
        ++unit;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text.data();
}

Progress::Progress(When when, std::string name, uint64_t total)
    : shown_(when == When::Always || (when == When::OnTerminal && isatty(STDERR_FILENO) != 0)),
      always_(when == When::Always),
      name_(std::move(name)),
      total_(total),
      next_(start_ + (always_ ? std::chrono::milliseconds(0) : kFirst)) {}

double Progress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::redraw() {
    const auto now = Clock::now();
    if (now < next_) return;
    next_ = now + kInterval;
    drawn_ = true;
    const double elapsed = std::max(seconds(), 1e-6);
    const double rate = static_cast<double>(done_) / elapsed;
    const std::string speed = sizeText(static_cast<uint64_t>(rate)) + "/s";
    if (total_ == 0) {
        std::fprintf(stderr, "\r\033[K%s  %s  %s", name_.c_str(), sizeText(done_).c_str(),
                     speed.c_str());
    } else {
        constexpr int width = 24;
        const double share =
            std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
        const auto filled = static_cast<int>(share * width);
        const uint64_t left = total_ - std::min(total_, done_);
        std::fprintf(stderr, "\r\033[K%s  %3.0f%% [%.*s%*s]  %s  %s left", name_.c_str(),
                     share * 100, filled, "########################", width - filled, "",
                     speed.c_str(), clockText(static_cast<double>(left) / rate).c_str());
    }
    std::fflush(stderr);
}

void Progress::clear() {
    if (!std::exchange(drawn_, false)) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

}  // namespace vekdc
