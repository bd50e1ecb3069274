#include "real_servers.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

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
    : program_(program),
      arguments_(arguments),
      ending_(ending),
      directory_((std::filesystem::temp_directory_path() / "qormon3-XXXXXX").string()),
      port_(unusedPort()) {
    if (mkdtemp(directory_.data()) != nullptr) {
        std::filesystem::create_directory(directory_ + "/files");
    }
}

RealServer::~RealServer() {
    if (shell_ != nullptr) {
        pclose(shell_);
    }
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

bool RealServer::start() {
    const std::string binary = findProgram(program_);
    if (binary.empty()) {
        problem_ = program_ + " is not installed";
        return false;
    }
    write("server.conf", configuration_ + ending_);
    const std::string command = "trap : HUP INT TERM; cd '" + directory_ + "' || exit; " + binary +
                                " " + arguments_ + watch;
    shell_ = popen(command.c_str(), "w");
    if (shell_ != nullptr) {
        makePrivate(fileno(shell_));
    }
    if (shell_ == nullptr || !waitUntil([this] { return !read("server.pid").empty(); })) {
        problem_ = program_ + " did not start: " + read("output.txt");
    }
    return problem_.empty();
}

bool RealServer::waitForLog(const std::string& text) const {
    return waitUntil([&] { return read("access.log").find(text) != std::string::npos; });
}

void RealServer::write(const std::string& name, const std::string& bytes) const {
    std::ofstream(directory_ + "/" + name, std::ios::binary) << bytes;
}

std::string RealServer::read(const std::string& name) const {
    std::ifstream file(directory_ + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

Nginx::Nginx() : RealServer("nginx", "-e stderr -p \"$PWD\" -c server.conf", "}\n}\n") {
    configuration_ = nginxConfiguration;
    addServerLines("listen 127.0.0.1:" + std::to_string(port()) + ";");
}

void Nginx::addFile(const std::string& name, const std::string& bytes) {
    write("files/" + name, bytes);
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

} // namespace support
