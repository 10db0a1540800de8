// Test helpers that capture what the library writes.
//
// LogCapture records every __android_log_print() call made in the process
// (the test executable defines that function, which takes precedence over
// liblog's for calls made from the shared library). StdoutCapture redirects
// file descriptor 1 into a temporary file. Both are safe to use while other
// threads log.
#pragma once

#include <string>
#include <vector>

namespace varn_test {

struct AndroidLogLine {
    int priority;
    std::string tag;   // the Android tag, "ZORLOG" unless changed
    std::string text;  // the formatted line, e.g. "[Mutex] lock: ..."
};

// Records Android log lines from construction until destruction. Only one
// capture may be active at a time.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<AndroidLogLine> lines() const;
    // Lines whose text contains `needle`.
    size_t count(const std::string& needle) const;
    bool contains(const std::string& needle) const { return count(needle) > 0; }
    // Every line's text, one per line, for failure messages.
    std::string dump() const;
    void clear();
};

// Redirects standard output into a temporary file until stop() or destruction.
class StdoutCapture {
  public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    // Restores standard output and returns everything written meanwhile.
    std::string stop();

  private:
    int saved_fd_ = -1;
    int capture_fd_ = -1;
    std::string text_;
};

// Writes `content` to a new temporary file and returns its path; the file is
// removed by remove_temp_files() or at exit.
std::string write_temp_file(const std::string& content);

}  // namespace varn_test
