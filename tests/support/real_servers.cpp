#include "real_servers.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#if defined(__APPLE__)
#include <crt_externs.h>
#endif

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <thread>

#include "loopback.h"

namespace support {

namespace {

constexpr std::chrono::milliseconds pollStep{10};
constexpr std::chrono::seconds startLimit{10};

char** environmentOfProcess() {
#if defined(__APPLE__)
    return *_NSGetEnviron();
#else
    return environ;
#endif
}

// Server programs often stand where only root's search path leads.
std::string findProgram(const char* name) {
    for (const char* place :
         {"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/", "/usr/local/bin/", "/opt/homebrew/bin/"}) {
        const std::string path = std::string(place) + name;
        if (access(path.c_str(), X_OK) == 0) {
            return path;
        }
    }
    return "";
}

template <typename Condition>
bool waitUntil(Condition&& holds) {
    const auto limit = std::chrono::steady_clock::now() + startLimit;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(pollStep);
    }
    return true;
}

} // namespace

TemporaryDirectory::TemporaryDirectory()
    : path_((std::filesystem::temp_directory_path() / "qormon3-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        path_ = "/nonexistent";
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

RealServer::RealServer(const char* program) : program_(program) {}

RealServer::~RealServer() {
    stop();
}

bool RealServer::start() {
    const std::string binary = findProgram(program_);
    if (binary.empty()) {
        problem_ = std::string(program_) + " is not installed";
        return false;
    }
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (spawn(binary) && waitUntilItListens()) {
            problem_.clear();
            return true;
        }
        stop();
        problem_ = std::string(program_) +
                   " did not start: " + readWholeFile(directory_.file("output.txt"));
    }
    return false;
}

bool RealServer::spawn(const std::string& binary) {
    port_ = unusedPort();
    const std::string file = directory_.file("server.conf");
    writeWholeFile(file, configuration(port_));

    std::vector<std::string> texts = arguments(file);
    texts.insert(texts.begin(), binary);
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);

    // A group of its own: what the server starts ends with it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, directory_.file("output.txt").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    const int error = posix_spawn(&pid_, binary.c_str(), &actions, &attributes, pointers.data(),
                                  environmentOfProcess());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        pid_ = -1;
    }
    return error == 0;
}

bool RealServer::runs() {
    int status = 0;
    if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
    }
    return pid_ > 0;
}

bool RealServer::waitUntilItListens() {
    // Both servers write their process number after they have bound the port: whoever takes the
    // connection then is ours.
    const std::string pidFile = directory_.file("server.pid");
    waitUntil([&] {
        return !runs() ||
               (std::atoi(readWholeFile(pidFile).c_str()) == pid_ && acceptsConnections(port_));
    });
    return runs();
}

void RealServer::stop() {
    if (pid_ <= 0) {
        return;
    }
    const pid_t group = pid_;
    kill(-group, SIGTERM);
    if (!waitUntil([this] { return !runs(); })) {
        kill(-group, SIGKILL);
        waitpid(group, nullptr, 0);
        pid_ = -1;
    }
}

std::string RealServer::log() const {
    return readWholeFile(directory_.file("access.log"));
}

bool RealServer::waitForLog(const std::string& text) const {
    return waitUntil([&] { return log().find(text) != std::string::npos; });
}

Nginx::Nginx() : RealServer("nginx") {
    std::error_code ignored;
    std::filesystem::create_directory(directory().file("files"), ignored);
}

Nginx::~Nginx() = default;

void Nginx::addFile(const std::string& name, const std::string& bytes, std::time_t modified) {
    const std::string path = directory().file("files/" + name);
    writeWholeFile(path, bytes);
    if (modified != -1) {
        const utimbuf times = {modified, modified};
        utime(path.c_str(), &times);
    }
}

void Nginx::addServerLines(const std::string& lines) {
    serverLines_ += lines + "\n";
}

std::string Nginx::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port()) + path;
}

std::string Nginx::configuration(std::uint16_t port) const {
    const std::string base = directory().path();
    std::string text = "daemon off;\n"
                       "master_process off;\n"
                       "pid " +
                       base +
                       "/server.pid;\n"
                       "error_log stderr;\n"
                       "events { worker_connections 64; }\n"
                       "http {\n"
                       "    default_type application/octet-stream;\n"
                       "    access_log " +
                       base + "/access.log;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += std::string("    ") + kind + "_temp_path " + base + "/" + kind + ";\n";
    }
    return text +
           "    server {\n"
           "        listen 127.0.0.1:" +
           std::to_string(port) +
           ";\n"
           "        root " +
           base + "/files;\n" + serverLines_ + "    }\n}\n";
}

std::vector<std::string> Nginx::arguments(const std::string& file) const {
    return {"-e", "stderr", "-p", directory().path(), "-c", file};
}

Tinyproxy::Tinyproxy() : RealServer("tinyproxy") {}

Tinyproxy::Tinyproxy(const std::string& user, const std::string& password)
    : RealServer("tinyproxy"), authentication_("BasicAuth " + user + " " + password + "\n") {}

Tinyproxy::~Tinyproxy() = default;

std::string Tinyproxy::configuration(std::uint16_t port) const {
    return "Port " + std::to_string(port) +
           "\n"
           "Listen 127.0.0.1\n"
           "Allow 127.0.0.1\n"
           "Timeout 30\n"
           "MaxClients 20\n"
           "LogLevel Connect\n"
           "LogFile \"" +
           directory().file("access.log") +
           "\"\n"
           "PidFile \"" +
           directory().file("server.pid") + "\"\n" + authentication_;
}

std::vector<std::string> Tinyproxy::arguments(const std::string& file) const {
    return {"-d", "-c", file};
}

} // namespace support
