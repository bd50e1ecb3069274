#include "qorupdate.h"

#include <cstring>

#include "configfile.h"
#include "httpclient.h"
#include "httpget.h"
#include "mif32.h"
#include "proxyhost.h"
#include "qoros.h"
#include "qorurl.h"

namespace {

constexpr unsigned int defaultPort = 80;
constexpr unsigned int statusOk = 200;
constexpr unsigned int statusMoved = 301;
constexpr unsigned int downloadConnectTimeout = 300; // s
constexpr std::size_t textLimit = 256;               // characters of a value
constexpr char fallbackGroup[] = "Language 2";

// A parsed URL that is released with its owner.
class Url {
public:
    Url() = default;
    ~Url() {
        QorInetUrlFree(&parts_);
    }
    Url(const Url&) = delete;
    Url& operator=(const Url&) = delete;

    bool parse(const char* text) {
        QorInetUrlFree(&parts_);
        return QorInetUrlParse(text, &parts_, defaultPort) != 0;
    }
    bool connect(HttpClient& http) const {
        return http.Connect(parts_.host, parts_.port, 0) != 0;
    }
    bool get(HttpClient& http) const {
        return http.Get(parts_.path) != 0;
    }

private:
    QORINET_URL parts_ = {};
};

// Gives a client its proxy, if there is to be one; false where that can't be stored.
template <class Client>
bool useProxy(Client& client, const char* proxyHost, unsigned int proxyPort) {
    if (proxyHost == nullptr || proxyHost[0] == '\0') {
        return true;
    }
    if (!proxyhost::set(client.proxyHost, proxyHost)) {
        return false;
    }
    client.proxyPort = proxyPort & 0xFFFF;
    return true;
}

// Asks the place that a redirect names. True when that gave a whole response.
bool followRedirect(HttpClient& http, Url& url) {
    char location[256];
    if (http.GetHeaderParam("Location: ", location, sizeof location) == 0) {
        return false;
    }
    // Not left to HttpClient::connect: the first server is let go before the place is read.
    http.tcp->Disconnect();
    return url.parse(location) && url.connect(http) && url.get(http);
}

// Loads the description over a connected client, which is disconnected afterwards.
bool fetchDescription(HttpClient& http, Url& url, ConfigFile& description) {
    bool whole = url.get(http);
    if (http.statusCode == statusMoved) {
        whole = followRedirect(http, url);
    }
    const bool loaded = whole && http.statusCode == statusOk &&
                        description.OpenMem(http.body, static_cast<int>(http.bodyLength)) != 0;
    http.tcp->Disconnect();
    return loaded;
}

void addText(Mif32& message, unsigned short id, const ConfigFile& description, const char* group,
             const char* name) {
    char value[textLimit + 1];
    if (description.ReadStr(group, name, value, sizeof value) != 0) {
        message.AddStr(id, value);
    }
}

void addNumber(Mif32& message, unsigned short id, const ConfigFile& description, const char* group,
               const char* name) {
    unsigned int value = 0;
    if (description.ReadInt(group, name, &value) != 0) {
        message.AddInt(id, value);
    }
}

void addDescription(Mif32& message, const ConfigFile& description, int language) {
    char group[32];
    sprintf_qor(group, sizeof group, "Language %d", language);
    if (description.ExistGroup(group) == 0) {
        strcpy_qor(group, sizeof group, fallbackGroup);
    }
    addText(message, 1, description, group, "ProductName");
    addNumber(message, 2, description, group, "Version");
    addNumber(message, 3, description, group, "Build");
    addNumber(message, 4, description, group, "Servicepack");
    // Kept: 6 comes before 5. Readers that walk the entries in order see them so.
    addText(message, 6, description, group, "UrlInfo");
    addText(message, 5, description, group, "UrlDownload");
    addNumber(message, 8, description, group, "Filesize");
}

// A message that lacks an entry for want of memory would be taken for what the server says.
unsigned int copyMessage(const Mif32& message, void* out, unsigned int outSize) {
    const unsigned int length = message.GetLen();
    if (out == nullptr || length > outSize || message.allocationFailed != 0) {
        return 0;
    }
    memcpy(out, message.GetData(), length);
    return length;
}

} // namespace

unsigned int CheckForUpdate(int language, const char* url, const char* proxyHost,
                            unsigned int proxyPort, void* out, unsigned int outSize) {
    Url place;
    if (!place.parse(url)) {
        return 0;
    }
    HttpClient http(nullptr);
    if (!useProxy(http, proxyHost, proxyPort) || !place.connect(http)) {
        return 0;
    }
    Mif32 message;
    ConfigFile description;
    if (fetchDescription(http, place, description)) {
        addDescription(message, description, language);
    }
    message.AddEndKz();
    return copyMessage(message, out, outSize);
}

signed char DownloadUpdate(const char* url, const char* destFile, const char* proxyHost,
                           int proxyPort, HttpGetCallback callback, void* context) {
    if (url == nullptr || destFile == nullptr) {
        return 0;
    }
    HttpGet get;
    if (get.tcp == nullptr || !useProxy(get, proxyHost, static_cast<unsigned int>(proxyPort))) {
        return 0;
    }
    get.tcp->timeout = downloadConnectTimeout;
    signed char updated = 0; // a file that was up to date is as good
    return get.HttpRequestCB(url, destFile, &updated, callback, context);
}
