#include "log_capture.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <mutex>

namespace varn_test {
namespace {

std::mutex g_mutex;
bool g_active = false;
std::vector<AndroidLogLine>* g_lines = new std::vector<AndroidLogLine>();  // lives until exit

std::mutex g_files_mutex;
std::vector<std::string> g_temp_files;

void remove_temp_files() {
    std::lock_guard<std::mutex> lock(g_files_mutex);
    for (const std::string& path : g_temp_files) unlink(path.c_str());
    g_temp_files.clear();
}

}  // namespace

LogCapture::LogCapture() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines->clear();
    g_active = true;
}

LogCapture::~LogCapture() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_active = false;
    g_lines->clear();
}

std::vector<AndroidLogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    return *g_lines;
}

size_t LogCapture::count(const std::string& needle) const {
    std::lock_guard<std::mutex> lock(g_mutex);
    size_t n = 0;
    for (const AndroidLogLine& line : *g_lines) {
        if (line.text.find(needle) != std::string::npos) ++n;
    }
    return n;
}

std::string LogCapture::dump() const {
    std::lock_guard<std::mutex> lock(g_mutex);
    std::string out;
    for (const AndroidLogLine& line : *g_lines) out += line.tag + ": " + line.text + "\n";
    return out;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_lines->clear();
}

StdoutCapture::StdoutCapture() {
    fflush(stdout);
    char path[] = "/tmp/varn_stdout_XXXXXX";
    capture_fd_ = mkstemp(path);
    if (capture_fd_ < 0) return;
    unlink(path);
    saved_fd_ = dup(STDOUT_FILENO);
    dup2(capture_fd_, STDOUT_FILENO);
}

StdoutCapture::~StdoutCapture() { stop(); }

std::string StdoutCapture::stop() {
    if (saved_fd_ < 0) return text_;
    fflush(stdout);
    dup2(saved_fd_, STDOUT_FILENO);
    close(saved_fd_);
    saved_fd_ = -1;
    lseek(capture_fd_, 0, SEEK_SET);
    char buf[4096];
    ssize_t n;
    while ((n = read(capture_fd_, buf, sizeof(buf))) > 0) text_.append(buf, static_cast<size_t>(n));
    close(capture_fd_);
    capture_fd_ = -1;
    return text_;
}

std::string write_temp_file(const std::string& content) {
    char path[] = "/tmp/varn_test_XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return std::string();
    const ssize_t written = write(fd, content.data(), content.size());
    close(fd);
    if (written != static_cast<ssize_t>(content.size())) return std::string();
    std::lock_guard<std::mutex> lock(g_files_mutex);
    if (g_temp_files.empty()) atexit(remove_temp_files);
    g_temp_files.push_back(path);
    return path;
}

}  // namespace varn_test

// Takes precedence over liblog's definition for every caller in the process.
extern "C" int __android_log_print(int priority, const char* tag, const char* fmt, ...) {
    char text[1024];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    std::lock_guard<std::mutex> lock(varn_test::g_mutex);
    if (varn_test::g_active) {
        varn_test::g_lines->push_back({priority, tag != nullptr ? tag : "", text});
    }
    return 1;
}
