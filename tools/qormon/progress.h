// A bar for a person who waits for a download.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>

namespace qormon {

constexpr unsigned int unknownTotal = 0xFFFFFFFF;

// One line of a terminal, drawn over again as the download goes on, at most ten times a second and
// never wider than the terminal is at that moment. Draws nothing where the stream is no terminal.
class Progress {
public:
    explicit Progress(std::FILE* stream);

    // Bytes that have come, of a total that may be unknownTotal.
    void show(unsigned int done, unsigned int total);

    // Draws what was shown last and ends the line; nothing where nothing was shown.
    void finish();

private:
    using Clock = std::chrono::steady_clock;

    void draw();
    std::string line(std::size_t room) const;
    std::string amounts() const;

    std::FILE* const stream_;
    const bool onTerminal_;
    bool begun_ = false;
    unsigned int done_ = 0;
    unsigned int total_ = unknownTotal;
    Clock::time_point start_;
    Clock::time_point lastDraw_;
    std::size_t lastLength_ = 0;
};

} // namespace qormon
