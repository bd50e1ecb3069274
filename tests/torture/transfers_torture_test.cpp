// The network clients where sockets, threads, memory and files are refused, or go in small steps.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "failing_calls.h"
#include "httpclient.h"
#include "httpget.h"
#include "mif32.h"
#include "qorinet.h"
#include "qorupdate.h"
#include "scripted_server.h"
#include "temp_directory.h"

namespace {

constexpr char description[] = "[Language 2]\nProductName=Product\nVersion=3\n";

// With a server that gives the description to everybody.
class TransfersTorture : public testing::Test {
protected:
    unsigned int port() const {
        return server_.port();
    }

    // Reads the answer over a connection of its own to a host that is looked up.
    int talks() const {
        TcpClient client;
        client.timeout = 5;
        const char request[] = "GET / HTTP/1.0\r\n\r\n";
        std::size_t got = 0;
        if (client.Connect("localhost", port(), 0) == 0 ||
            client.Send(reinterpret_cast<const unsigned char*>(request), sizeof request - 1) == 0) {
            return 0;
        }
        while (got < answer_.size()) {
            unsigned char bytes[400];
            unsigned int count = sizeof bytes;
            if (client.Receive(bytes, &count) == 0) {
                return 0;
            }
            got += count;
        }
        return 1;
    }

    // A request with a body of two values, and what became of it.
    int posts(bool multipart) const {
        HttpClient http(nullptr);
        if (multipart) {
            http.SetMultipartFormData();
        }
        const unsigned int first = http.AddPostValue("name", "value", 0);
        if (first == 0 || http.AddPostValue("other", "value", 0) == first ||
            http.Connect("127.0.0.1", port(), 0) == 0) {
            return 0;
        }
        return answered(http, http.Post("/"));
    }

    int gets() const {
        HttpClient http(nullptr);
        return http.Connect("127.0.0.1", port(), 0) != 0 ? answered(http, http.Get("/")) : 0;
    }

    // The result where it says whether the answer is there.
    static int answered(const HttpClient& http, int done) {
        const bool whole = http.statusCode == 200 && http.bodyLength == sizeof description - 1 &&
                           strcmp(http.body, description) == 0;
        return done == 0 || whole ? done : -1;
    }

    // 1 for the whole message, 2 for the end marker alone, 0 for none.
    int checks() const {
        char out[100];
        const unsigned int length = CheckForUpdate(2, url_.c_str(), nullptr, 0, out, sizeof out);
        return length == 21 ? 1 : length == 0 || length == 2 ? static_cast<int>(length) : -1;
    }

    // The result where the file is whole; with 10 more where it lacks something.
    int downloads() const {
        const int done = DownloadUpdate(url_.c_str(), file_.c_str(), nullptr, 0, nullptr, nullptr);
        const torture::Aside aside;
        const bool whole = directory_.read("file") == description;
        remove(file_.c_str());
        return (done != 0) == whole ? done : done + 10;
    }

    const support::TempDirectory directory_;
    const std::string file_ = directory_.path("file");
    const std::string answer_ =
        "HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(sizeof description - 1) +
        "\r\nDate: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\n" + description;
    support::ScriptedServer server_{
        std::vector<support::Script>(300, {support::readRequest(), support::sendBytes(answer_)})};
    const std::string url_ = server_.url("/file");
};

TEST_F(TransfersTorture, OverTcp) {
    torture::failEach({{"a connection", [this] { return talks(); },
                        "memory ENOMEM 0, getaddrinfo -2 0, socket EMFILE 0, setsockopt EINVAL 1, "
                        "pthread_create EAGAIN 0, connect ECONNREFUSED 0, connect EINTR 0, "
                        "send EPIPE 0, send EINTR 0, send one-byte 1, poll ENOMEM 0, poll EINTR 1, "
                        "recv ECONNRESET 0, recv EINTR 0, recv one-byte 1"}});
}

TEST_F(TransfersTorture, OverHttp) {
    torture::failEach({
        {"Get", [this] { return gets(); },
         // A lost connection is made again.
         "memory ENOMEM 0, socket EMFILE 0, send one-byte 1, poll ENOMEM 0, "
         "poll EINTR 1, recv ECONNRESET 1, recv one-byte 1"},
        {"Post of a form", [this] { return posts(false); }, "memory ENOMEM 0"},
        {"Post of parts", [this] { return posts(true); }, "memory ENOMEM 0"},
    });
}

TEST_F(TransfersTorture, OfUpdates) {
    torture::failEach({
        {"a check", [this] { return checks(); },
         "memory ENOMEM 0 0 0 0 2 2 2 2 0, connect ECONNREFUSED 0, poll EINTR 1, recv EIO 2"},
        {"a download", [this] { return downloads(); },
         "memory ENOMEM 0, stat EACCES 1, fopen EACCES 0, fwrite ENOSPC 0, fclose ENOSPC 10, "
         "utime EPERM 10, send one-byte 1, poll EINTR 1, recv EIO 0, recv one-byte 1"},
    });
}

TEST_F(TransfersTorture, OfHandles) {
    torture::failEach({
        {"a connection",
         [] {
             void* const handle = QorInetTcpClientCreate();
             QorInetTcpClientClose(handle);
             return handle != nullptr ? 1 : 0;
         },
         "memory ENOMEM 0"},
        {"a download",
         [this] {
             void* const handle = QorInetHttpGetCreate();
             signed char updated = 0;
             const int done =
                 QorInetHttpGetHttpRequest(handle, url_.c_str(), file_.c_str(), &updated);
             QorInetHttpGetClose(handle);
             remove(file_.c_str());
             return done == updated ? done : -1;
         },
         "memory ENOMEM 0"},
    });
}

} // namespace
