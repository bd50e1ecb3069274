#include "real_servers.h"

#include <unistd.h>

#include <filesystem>

#include "loopback.h"

namespace support {

namespace {

// Around the start of the server: waits for the end of the input, which is the end of the test,
// however it comes, and removes the server and its directory. Server programs often stand where
// only root's search path leads.
constexpr char begin[] = R"(trap : HUP INT TERM
PATH="$PATH:/usr/sbin:/usr/local/sbin:/opt/homebrew/bin"
cd )";
constexpr char watch[] = R"( </dev/null >output.txt 2>&1 &
exec 2>/dev/null
read -r line
kill -9 $!
wait
rm -rf "$PWD"
)";

constexpr char nginxConfiguration[] = R"(
daemon off; master_process off; pid server.pid; error_log stderr;
events { worker_connections 64; }
http {
    access_log access.log;
    client_body_temp_path client_body; proxy_temp_path proxy;
    fastcgi_temp_path fastcgi; uwsgi_temp_path uwsgi; scgi_temp_path scgi;
    server {
        root files;
)";

constexpr char tinyproxyConfiguration[] = R"(
Listen 127.0.0.1
Allow 127.0.0.1
LogLevel Connect
LogFile "access.log"
PidFile "server.pid"
)";

} // namespace

RealServer::RealServer(const char* command) : command_(command), port_(unusedPort()) {
    std::filesystem::create_directory(directory_.path("files"));
}

RealServer::~RealServer() {
    if (shell_ != nullptr) {
        pclose(shell_);
    }
}

bool RealServer::start() {
    directory_.write("server.conf", configuration_);
    shell_ = popen((begin + directory_.path() + " || exit\n" + command_ + watch).c_str(), "w");
    makePrivate(fileno(shell_));
    const auto said = [this](const char* file, const char* text) {
        return directory_.read(file).find(text) != std::string::npos;
    };
    waitUntil([&] { return said("server.pid", "\n") || said("output.txt", "not found"); });
    problem_ = said("server.pid", "\n") ? "" : command_ + ": " + directory_.read("output.txt");
    return problem_.empty();
}

bool RealServer::waitForLog(const std::string& text) const {
    return waitUntil([&] { return directory_.read("access.log").find(text) != std::string::npos; });
}

Nginx::Nginx() : RealServer("nginx -e stderr -p \"$PWD\" -c server.conf") {
    addServerLines("listen 127.0.0.1:" + std::to_string(port()) + ";");
}

void Nginx::addFile(const std::string& name, const std::string& bytes, std::time_t modified) {
    directory_.write("files/" + name, bytes);
    setModificationTime(directory_.path("files/" + name), modified);
}

void Nginx::addServerLines(const std::string& lines) {
    serverLines_ += lines + "\n";
    configuration_ = nginxConfiguration + serverLines_ + "}\n}\n";
}

std::string Nginx::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port()) + path;
}

Tinyproxy::Tinyproxy() : RealServer("tinyproxy -d -c server.conf") {
    configuration_ = tinyproxyConfiguration + ("Port " + std::to_string(port()) + "\n");
}

void Tinyproxy::requireCredentials(const std::string& user, const std::string& password) {
    configuration_ += "BasicAuth " + user + " " + password + "\n";
}

} // namespace support
