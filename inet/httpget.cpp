// The downloader itself: what it asks for, and what it makes of the answer.
#include "httpget.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <new>

#include "basicauth.h"
#include "httpget_header.h"
#include "httpget_transfer.h"
#include "httpvalue.h"
#include "qoros.h"

static_assert(offsetof(HttpGet, tcp) == 0 && offsetof(HttpGet, hostText) == 8 &&
                  offsetof(HttpGet, proxyHost) == 135 && offsetof(HttpGet, proxyPort) == 263 &&
                  offsetof(HttpGet, proxyUser) == 267 && offsetof(HttpGet, proxyPassword) == 275 &&
                  offsetof(HttpGet, errorText) == 283 && sizeof(HttpGet) == 383,
              "programs access the members at these places");

namespace {

constexpr unsigned int defaultPort = 80;     // never written into "Host:"
constexpr unsigned int transferTimeout = 30; // s
constexpr std::size_t dateSize = 40;

// The text of a request in its fixed buffer. That it did not fit is remembered.
class RequestText {
public:
    void add(std::initializer_list<const char*> pieces) {
        for (const char* piece : pieces) {
            const std::size_t length = strlen(piece);
            fits_ = fits_ && length < sizeof text_ - used_;
            if (fits_) {
                memcpy(text_ + used_, piece, length + 1);
                used_ += length;
            }
        }
    }
    bool fits() const {
        return fits_;
    }
    void send(TcpClient& tcp) const {
        // That nothing could be sent shows when no answer comes.
        tcp.Send(reinterpret_cast<const unsigned char*>(text_), static_cast<unsigned int>(used_));
    }

private:
    char text_[4096] = "";
    std::size_t used_ = 0;
    bool fits_ = true;
};

void addRequestLine(RequestText& request, const HttpGet& get, const QORINET_URL& url) {
    if (get.proxyHost[0] == '\0') {
        request.add({"GET /", url.path, " HTTP/1.0\r\n"});
        return;
    }
    char port[12];
    sprintf_qor(port, sizeof port, "%d", static_cast<int>(url.port));
    request.add({"GET http://", url.host, ":", port, "/", url.path, " HTTP/1.0\r\n"});
}

void addCredentials(RequestText& request, const HttpGet& get) {
    if (get.proxyHost[0] == '\0' || get.proxyUser == nullptr || get.proxyPassword == nullptr) {
        return;
    }
    char encoded[basicauth::encodedSize];
    if (basicauth::encode(get.proxyUser, get.proxyPassword, basicauth::longestTexts, encoded)) {
        request.add({"Proxy-Authorization: Basic ", encoded, "\r\n"});
    }
}

// The date in the form of RFC 1123; its names are English whatever the locale.
void formatDate(const tm& time, char* text) {
    constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    sprintf_qor(text, dateSize, "%s, %02d %s %04lld %02d:%02d:%02d GMT", days[time.tm_wday],
                time.tm_mday, months[time.tm_mon], time.tm_year + 1900LL, time.tm_hour, time.tm_min,
                time.tm_sec);
}

// A copy of a text; null for a null or empty one, and without memory.
char* copyOf(const char* text) {
    const std::size_t size = text == nullptr || text[0] == '\0' ? 0 : strlen(text) + 1;
    char* const copy = size == 0 ? nullptr : new (std::nothrow) char[size];
    return copy == nullptr ? nullptr : static_cast<char*>(memcpy(copy, text, size));
}

// What a member is to be from now on: the copy, if there is one.
char* replaced(char* owned, char* copy) {
    if (copy == nullptr) {
        return owned;
    }
    delete[] owned;
    return copy;
}

signed char fail(HttpGet& get, const char* text) {
    strcpy_qor(get.errorText, sizeof get.errorText, text);
    return 0;
}

signed char failByStatus(HttpGet& get, const httpget::ResponseStart& start) {
    char line[sizeof get.errorText];
    httpget::copyFirstLine(start, line, sizeof line);
    sprintf_qor(get.errorText, sizeof get.errorText, "HTTP Error: %s", line);
    return 0;
}

// Connects to the URL's server, or to the proxy.
bool connectTo(HttpGet& get, const QORINET_URL& url) {
    const unsigned int urlPort = url.port;
    if (urlPort == defaultPort) {
        strcpy_qor(get.hostText, sizeof get.hostText, url.host);
    } else {
        sprintf_qor(get.hostText, sizeof get.hostText, "%s:%d", url.host,
                    static_cast<int>(urlPort));
    }
    const bool direct = get.proxyHost[0] == '\0';
    const char* const host = direct ? url.host : get.proxyHost;
    const unsigned int port = direct ? urlPort : get.proxyPort;
    const auto secure = static_cast<signed char>(url.secure);
    if (get.tcp == nullptr || get.tcp->Connect(host, port, secure) == 0) {
        sprintf_qor(get.errorText, sizeof get.errorText, "Connect to %s failed", url.host);
        return false;
    }
    return true;
}

// False for a request that does not fit: a cut one would ask for something else.
bool sendRequest(HttpGet& get, const QORINET_URL& url, const char* destFile) {
    RequestText request;
    addRequestLine(request, get, url);
    // Kept: "UserAgent" without a hyphen; servers' logs and rules know it so.
    request.add({"Connection: Keep-Alive\r\nHost: ", get.hostText,
                 "\r\nUserAgent: QOR\r\nAccept: */*\r\n"});
    addCredentials(request, get);
    char date[dateSize];
    if (get.getFileInfo(destFile, nullptr, date) != 0) {
        request.add({"If-Modified-Since: ", date, "\r\n"});
    }
    request.add({"\r\n"});
    if (request.fits()) {
        request.send(*get.tcp);
    }
    return request.fits();
}

bool stampFile(const char* path, const char* date) {
    const long time = StrToDate(date);
    return time != -1 && QorOsSetFileTime(path, time) != 0;
}

// Writes the body into the file and gives that its time, also when the body came short.
signed char storeBody(HttpGet& get, const httpget::ResponseStart& start, const char* destFile,
                      const httpget::Follower& follower) {
    const httpget::Transfer transfer = httpget::receiveFile(*get.tcp, start, destFile, follower);
    if (transfer == httpget::Transfer::notCreated) {
        return fail(get, "Can't open destination file");
    }
    if (transfer == httpget::Transfer::notWritten) {
        fail(get, "Can't write destination file");
    }
    if (start.date[0] != '\0' && !stampFile(destFile, start.date)) {
        return fail(get, "Set file time failed");
    }
    return transfer == httpget::Transfer::complete ? 1 : 0;
}

} // namespace

HttpGet::HttpGet()
    : tcp(new (std::nothrow) TcpClient),
      hostText(),
      proxyHost(),
      proxyPort(0),
      proxyUser(nullptr),
      proxyPassword(nullptr),
      errorText() {}

HttpGet::~HttpGet() {
    delete tcp; // disconnects
    delete[] proxyPassword;
    delete[] proxyUser;
}

void HttpGet::SetProxyAuthentication(const char* user, const char* password) {
    // Both are copied first: either text may stand in a member.
    char* const newUser = copyOf(user);
    char* const newPassword = copyOf(password);
    proxyUser = replaced(proxyUser, newUser);
    proxyPassword = replaced(proxyPassword, newPassword);
}

signed char HttpGet::HttpRequest(const char* url, const char* destFile, signed char* updated) {
    return HttpRequestCB(url, destFile, updated, nullptr, nullptr);
}

signed char HttpGet::HttpRequestCB(const char* url, const char* destFile, signed char* updated,
                                   HttpGetCallback callback, void* context) {
    if (updated != nullptr) {
        *updated = 0;
    }
    QORINET_URL parts = {};
    signed char result = 0;
    if (QorInetUrlParse(url, &parts, defaultPort) == 0) {
        fail(*this, "URL Parse Error !");
    } else if (connectTo(*this, parts)) {
        result = getFile(parts, destFile, updated, callback, context);
        tcp->Disconnect();
    }
    QorInetUrlFree(&parts);
    return result;
}

signed char HttpGet::getFile(QORINET_URL url, const char* destFile, signed char* updated,
                             HttpGetCallback callback, void* context) {
    if (updated != nullptr) {
        *updated = 0;
    }
    if (tcp == nullptr || destFile == nullptr || !sendRequest(*this, url, destFile)) {
        return 0;
    }
    tcp->timeout = transferTimeout;
    httpget::ResponseStart start;
    if (!httpget::receiveFirstBytes(*tcp, start)) {
        return fail(*this, "Receive timeout");
    }
    if (httpget::hasStatus(start, "304")) {
        return 1;
    }
    if (!httpget::hasStatus(start, "200")) {
        return failByStatus(*this, start);
    }
    switch (httpget::receiveHeaders(*tcp, start)) {
    case httpget::Headers::understood:
        break;
    case httpget::Headers::brokenOff:
        return fail(*this, "Receive timeout");
    case httpget::Headers::endless:
        return 0;
    }
    const signed char result = storeBody(*this, start, destFile, {callback, context});
    if (updated != nullptr) {
        *updated = result;
    }
    return result;
}

signed char HttpGet::getFileInfo(const char* file, unsigned int* size, char* dateText) {
    struct stat info = {};
    tm time = {};
    if (file == nullptr || stat(file, &info) != 0 || gmtime_r(&info.st_mtime, &time) == nullptr) {
        return 0;
    }
    if (size != nullptr) {
        *size = static_cast<unsigned int>(info.st_size);
    }
    if (dateText != nullptr) {
        formatDate(time, dateText);
    }
    return 1;
}
