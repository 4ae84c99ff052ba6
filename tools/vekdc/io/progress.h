// A line on the terminal that says how far a file has come: share, bar, rate, remaining time.
//
// It appears only after a moment, so that short work stays silent, and is redrawn a few times a
// second. Where the length is not known (a pipe) it shows the bytes read and the rate.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace vekdc {

class Progress {
 public:
    enum class When { Never, OnTerminal, Always };

    /// `total` bytes are to come; 0 when that is not known.
    Progress(When when, std::string name, uint64_t total);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(uint64_t bytes) {
        done_ += bytes;
        if (shown_) redraw();
    }

    /// Takes the line away, for a message or for good.
    void clear();

    uint64_t done() const { return done_; }
    double seconds() const;

 private:
    using Clock = std::chrono::steady_clock;
    void redraw();

    bool shown_;
    bool always_;
    std::string name_;
    uint64_t total_;
    uint64_t done_ = 0;
    bool drawn_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point next_;
};

/// "12.3 MB", in powers of ten.
std::string sizeText(uint64_t bytes);

}  // namespace vekdc
