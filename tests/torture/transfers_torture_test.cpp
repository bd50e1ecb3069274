// The network clients where sockets, threads, memory and files are refused, or go in small steps.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "failing_calls.h"
#include "httpclient.h"
#include "httpget.h"
#include "qorupdate.h"
#include "scripted_server.h"
#include "temp_directory.h"

namespace {

constexpr char description[] = "[Language 2]\nProductName=Product\nVersion=3\n";

// With a server that gives the description to everybody.
class TransfersTorture : public testing::Test {
protected:
    // Reads the answer over a connection to a host that is looked up.
    int talks() const {
        TcpClient client;
        const char request[] = "GET / HTTP/1.0\r\n\r\n";
        int done = client.Connect("localhost", server_.port(), 0) != 0
                       ? client.Send(reinterpret_cast<const unsigned char*>(request), 18)
                       : 0;
        for (std::size_t left = answer_.size(); done != 0 && left > 0;) {
            unsigned char bytes[400];
            unsigned int count = sizeof bytes;
            done = client.Receive(bytes, &count);
            left -= count;
        }
        return done;
    }

    enum class Request { plain, form, parts };

    int asks(Request request) const {
        HttpClient http(nullptr);
        if (request == Request::parts) {
            http.SetMultipartFormData();
        }
        const bool plain = request == Request::plain;
        const unsigned int first = plain ? 0 : http.AddPostValue("name", "value", 0);
        const bool complete = plain || (first != 0 && http.AddPostValue("a", "b", 0) > first);
        if (!complete || http.Connect("127.0.0.1", server_.port(), 0) == 0) {
            return 0;
        }
        const int done = plain ? http.Get("/") : http.Post("/");
        const bool right = done == 0 || strcmp(http.body, description) == 0;
        return right ? done : -1;
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
                        "memory ENOMEM 0, getaddrinfo -2 0, socket EMFILE 0, "
                        "pthread_create EAGAIN 0, connect ECONNREFUSED 0, connect EINTR 0, "
                        "send EPIPE 0, send EINTR 0, send one-byte 1, poll EINTR 0, "
                        "recv ECONNRESET 0, recv EINTR 0, recv one-byte 1"}});
}

TEST_F(TransfersTorture, OverHttp) {
    torture::failEach({
        {"Get", [this] { return asks(Request::plain); },
         // A lost connection is made again.
         "memory ENOMEM 0, socket EMFILE 0, send one-byte 1, "
         "poll EINTR 0, recv ECONNRESET 1, recv one-byte 1"},
        {"Post of a form", [this] { return asks(Request::form); }, "memory ENOMEM 0"},
        {"Post of parts", [this] { return asks(Request::parts); }, "memory ENOMEM 0"},
    });
}

TEST_F(TransfersTorture, OfUpdates) {
    torture::failEach({
        {"a check", [this] { return checks(); },
         "memory ENOMEM 0 0 0 0 2 2 2 2 0, connect ECONNREFUSED 0, poll EINTR 2, recv EIO 2"},
        {"a download", [this] { return downloads(); },
         "memory ENOMEM 0, stat EACCES 1, fopen EACCES 0, fwrite ENOSPC 0, fclose ENOSPC 10, "
         "utime EPERM 10, send one-byte 1, poll EINTR 0, recv EIO 0, recv one-byte 1"},
    });
}

TEST_F(TransfersTorture, ThroughAProxy) {
    const auto loads = [this] {
        HttpGet http;
        strcpy(http.proxyHost, "127.0.0.1");
        http.proxyPort = server_.port();
        http.SetProxyAuthentication("user", "password");
        const int done = http.HttpRequest("http://host/", file_.c_str(), nullptr);
        remove(file_.c_str());
        return done;
    };
    // Credentials of which there is no copy are not sent.
    torture::failEach({{"a download", loads, "memory ENOMEM 0 1 1 0"}});
}

} // namespace
