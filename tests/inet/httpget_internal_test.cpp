#include "httpget.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "http_peer.h"
#include "qoros.h"
#include "replaced_calls.h"
#include "temp_directory.h"

namespace {

class HttpGetInternal : public ReplacedCalls {
protected:
    void SetUp() override {
        calls.transmit = [](int, const void*, std::size_t size) {
            return static_cast<ssize_t>(size);
        };
        calls.take = [this](int, void* data, std::size_t, int) { return take(data); };
        calls.pause = [this](unsigned int milliseconds) { pauses.push_back(milliseconds); };
    }

    // Hands the next piece out; behind the last one the connection breaks.
    ssize_t take(void* data) {
        if (pieces.empty()) {
            errno = EIO;
            return -1;
        }
        const std::string piece = pieces.front();
        pieces.erase(pieces.begin());
        memcpy(data, piece.data(), piece.size());
        return static_cast<ssize_t>(piece.size());
    }

    int receive(std::vector<std::string> answer) {
        pieces = std::move(answer);
        pauses.clear();
        close(connectPeer(*get.tcp)); // always readable
        QORINET_URL url = {};
        char path[] = "path";
        url.path = path;
        return get.getFile(url, directory.path("file").c_str(), nullptr, nullptr, nullptr);
    }

    const support::TempDirectory directory;
    HttpGet get;
    std::vector<std::string> pieces;
    std::vector<unsigned int> pauses; // ms
};

TEST_F(HttpGetInternal, PausesBeforeFurtherReceives) {
    using Pauses = std::vector<unsigned int>;
    EXPECT_EQ(receive({"H", "TTP/1.0 200 ", "OK\r\nContent-length: 1\r\n\r\n", "x"}), 1);
    EXPECT_EQ(pauses, Pauses(2, 100));
    EXPECT_EQ(receive({"HTTP/1.0 200 OK\r\n", "\r\n", "x"}), 0);
    EXPECT_EQ(pauses, Pauses(1, 100));
    EXPECT_EQ(directory.read("file"),
              "x"); // broken off without a length: the connection still stands
}

TEST_F(HttpGetInternal, GivesUpOnHeadersAfterFiftyFurtherReceives) {
    strcpy_qor(get.errorText, sizeof get.errorText, "as before");
    std::vector<std::string> answer(50, "x");
    answer.front() = "HTTP/1.0 200 OK\r\nContent-length : 0";
    answer.insert(answer.end(), {"\r\nContent-length: 0\r\n\r\n", "never read"});
    EXPECT_EQ(receive(answer), 1);
    answer.insert(answer.begin() + 1, "x");
    EXPECT_EQ(receive(answer), 0);
    EXPECT_EQ(pauses.size(), 50u);
    EXPECT_STREQ(get.errorText, "as before");
}

} // namespace
