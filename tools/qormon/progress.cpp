#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "arguments.h"

namespace qormon {

namespace {

constexpr std::chrono::milliseconds drawInterval(100);
constexpr unsigned int defaultColumns = 80;
constexpr unsigned int mostColumns = 1000;
constexpr std::size_t widestBar = 40;
constexpr std::size_t narrowestBar = 5;
// So much room the amounts get at most; with what they need at the moment the bar would twitch.
constexpr std::size_t longestAmounts = 40;

// The terminal's width: what it says itself, or else the environment.
unsigned int columnsOf(std::FILE* stream) {
    winsize size = {};
    if (ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
        return size.ws_col;
    }
    const char* const columns = std::getenv("COLUMNS"); // NOLINT(concurrency-mt-unsafe): no setenv
    const std::optional<unsigned int> number = parseNumber(columns ? columns : "", mostColumns);
    return number && *number != 0 ? *number : defaultColumns;
}

std::string humanBytes(double bytes) {
    constexpr const char* units[] = {"B", "KiB", "MiB", "GiB"};
    std::size_t unit = 0;
    // What would be rounded to 1024.0 belongs to the next unit.
    for (; bytes >= 1023.95 && unit + 1 < std::size(units); ++unit) {
        bytes /= 1024;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

// 100 only when all has come; more may come than was announced.
unsigned int percentOf(unsigned int done, unsigned int total) {
    return done >= total ? 100 : static_cast<unsigned int>(done * 100ULL / total);
}

std::string bar(std::size_t width, unsigned int percent) {
    std::string text(width, '-');
    std::fill_n(text.begin(), width * percent / 100, '#');
    return " [" + text + "]";
}

} // namespace

Progress::Progress(std::FILE* stream)
    : stream_(stream), onTerminal_(isatty(fileno(stream)) == 1), start_(), lastDraw_() {}

void Progress::show(unsigned int done, unsigned int total) {
    done_ = done;
    total_ = total;
    const Clock::time_point now = Clock::now();
    if (!begun_) {
        begun_ = true;
        start_ = now;
    } else if (now - lastDraw_ < drawInterval) {
        return;
    }
    lastDraw_ = now;
    draw();
}

void Progress::finish() {
    if (!begun_) {
        return;
    }
    draw();
    if (onTerminal_) {
        std::fputc('\n', stream_);
    }
    begun_ = false;
}

void Progress::draw() {
    if (!onTerminal_) {
        return;
    }
    // The last column stays free: a character there moves some terminals to the next line.
    const std::size_t room = columnsOf(stream_) - 1;
    std::string text = line(room);
    const std::size_t length = text.size();
    if (lastLength_ > length) {
        text.append(std::min(lastLength_, room) - length, ' ');
    }
    lastLength_ = length;
    text.insert(0, 1, '\r');
    std::fwrite(text.data(), 1, text.size(), stream_);
    std::fflush(stream_);
}

std::string Progress::line(std::size_t room) const {
    std::string text;
    if (total_ != unknownTotal) {
        const unsigned int percent = percentOf(done_, total_);
        char head[16];
        std::snprintf(head, sizeof head, "%3u %%", percent);
        text = head;
        const std::size_t taken = text.size() + bar(0, 0).size() + longestAmounts;
        if (taken + narrowestBar <= room) {
            text += bar(std::min(room - taken, widestBar), percent);
        }
    }
    return (text + amounts()).substr(0, room);
}

std::string Progress::amounts() const {
    std::string text = "  " + humanBytes(done_);
    if (total_ != unknownTotal) {
        text += " of " + humanBytes(total_);
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    if (done_ != 0 && seconds > 0) {
        text += "  " + humanBytes(done_ / seconds) + "/s";
    }
    return text;
}

} // namespace qormon
