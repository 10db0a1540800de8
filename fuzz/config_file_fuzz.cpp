// Feeds arbitrary bytes to the configuration-file parser and looks up every
// name it could have stored. Input: byte 0 picks the line length limit, byte 1
// the trace flag, the rest is the file's content.
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <vel_loc_fw/config_file.h>
#include <vel_loc_fw/log_util.h>

// The Android log is not the subject here: format the line and drop it.
extern "C" int __android_log_print(int, const char*, const char* fmt, ...) {
    char line[1024];
    va_list args;
    va_start(args, fmt);
    vsnprintf(line, sizeof(line), fmt, args);
    va_end(args);
    return 1;
}

namespace {

void look_up(vel_loc_fw::ConfigFile& config, const char* name) {
    const char* text = nullptr;
    config.getString(name, &text);
    if (config.getStringDup(name, &text, "default") == 0) delete[] text;  // a copy now
    int number = 0;
    config.getInt32Default(name, number, 1);
    config.get_PZ_Int32Default(name, number, 1);
    config.get_PNZ_Int32Default(name, number, 1);
    double real = 0;
    config.getDoubleDefault(name, real, 1.0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int logging = vel_loc_fw::log_set_global_level(vel_loc_fw::EL_VERBOSE);
    (void)logging;
    if (size < 2) return 0;
    const size_t max_line = 2 + data[0] % 64;
    const bool verbose = data[1] & 1;
    data += 2;
    size -= 2;

    const int fd = memfd_create("config", 0);
    if (fd < 0) return 0;
    const bool written = write(fd, data, size) == static_cast<ssize_t>(size);
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    std::unique_ptr<vel_loc_fw::ConfigFile> config(
            written ? vel_loc_fw::ConfigFile::createInstance(path.c_str(), max_line, verbose)
                    : nullptr);
    close(fd);
    if (!config) return 0;

    // Every run of name characters in the input is a candidate key.
    const std::string text(reinterpret_cast<const char*>(data), size);
    const char* const kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (size_t begin = text.find_first_of(kLetters); begin != std::string::npos;) {
        const size_t end = text.find_first_not_of(std::string(kLetters) + "0123456789_-", begin);
        look_up(*config, text.substr(begin, end - begin).c_str());
        begin = text.find_first_of(kLetters, end);
    }
    look_up(*config, "");
    return 0;
}
