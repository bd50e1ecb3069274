#include "real_servers.h"

#include <unistd.h>

#include <filesystem>

#include "loopback.h"

namespace support {

namespace {

// Behind the start of the server: waits for the end of the input, which is the end of the test,
// however it comes, and removes the server and its directory.
constexpr char watch[] = R"( </dev/null >output.txt 2>&1 &
exec 2>/dev/null
read -r line
kill -9 $!
wait
rm -rf "$PWD"
)";

constexpr char nginxConfiguration[] = R"(
daemon off;
master_process off;
pid server.pid;
error_log stderr;
events { worker_connections 64; }
http {
    access_log access.log;
    client_body_temp_path client_body;
    proxy_temp_path proxy;
    fastcgi_temp_path fastcgi;
    uwsgi_temp_path uwsgi;
    scgi_temp_path scgi;
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

// Server programs often stand where only root's search path leads.
std::string findProgram(const std::string& name) {
    for (const char* place :
         {"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/", "/usr/local/bin/", "/opt/homebrew/bin/"}) {
        if (access((place + name).c_str(), X_OK) == 0) {
            return place + name;
        }
    }
    return "";
}

} // namespace

RealServer::RealServer(const char* program, const char* arguments, const char* ending)
    : program_(program), arguments_(arguments), ending_(ending), port_(unusedPort()) {
    std::filesystem::create_directory(directory_.path("files"));
}

RealServer::~RealServer() {
    if (shell_ != nullptr) {
        pclose(shell_);
    }
}

bool RealServer::start() {
    const std::string binary = findProgram(program_);
    if (binary.empty()) {
        problem_ = program_ + " is not installed";
        return false;
    }
    directory_.write("server.conf", configuration_ + ending_);
    const std::string command = "trap : HUP INT TERM; cd '" + directory_.path() + "' || exit; " +
                                binary + " " + arguments_ + watch;
    shell_ = popen(command.c_str(), "w");
    if (shell_ != nullptr) {
        makePrivate(fileno(shell_));
    }
    if (shell_ == nullptr ||
        !waitUntil([this] { return !directory_.read("server.pid").empty(); })) {
        problem_ = program_ + " did not start: " + directory_.read("output.txt");
    }
    return problem_.empty();
}

bool RealServer::waitForLog(const std::string& text) const {
    return waitUntil([&] { return directory_.read("access.log").find(text) != std::string::npos; });
}

Nginx::Nginx() : RealServer("nginx", "-e stderr -p \"$PWD\" -c server.conf", "}\n}\n") {
    configuration_ = nginxConfiguration;
    addServerLines("listen 127.0.0.1:" + std::to_string(port()) + ";");
}

void Nginx::addFile(const std::string& name, const std::string& bytes, std::time_t modified) {
    directory_.write("files/" + name, bytes);
    setModificationTime(directory_.path("files/" + name), modified);
}

void Nginx::addServerLines(const std::string& lines) {
    configuration_ += lines + "\n";
}

std::string Nginx::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port()) + path;
}

Tinyproxy::Tinyproxy() : RealServer("tinyproxy", "-d -c server.conf", "") {
    configuration_ = tinyproxyConfiguration + ("Port " + std::to_string(port()) + "\n");
}

void Tinyproxy::requireCredentials(const std::string& user, const std::string& password) {
    configuration_ += "BasicAuth " + user + " " + password + "\n";
}

} // namespace support
