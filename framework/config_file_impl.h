// The one implementation of ConfigFile.
#pragma once

#include <stddef.h>

#include <vel_loc_fw/config_file.h>
#include <vel_loc_fw/list.h>

namespace vel_loc_fw {

class ConfigFileImpl : public ConfigFile {
  public:
    // Parses `path` at once; see ConfigFile::createInstance().
    ConfigFileImpl(const char* path, size_t maxLineLength, bool verbose);
    ~ConfigFileImpl() override;

    bool isLoaded() const override;
    int getString(const char* name, const char** value) override;
    int getStringDup(const char* name, const char** value, const char* defaultValue) override;
    int getInt32(const char* name, int& value) override;
    int getInt32Default(const char* name, int& value, const int& defaultValue) override;
    int get_PZ_Int32Default(const char* name, int& value, const int& defaultValue) override;
    int get_PNZ_Int32Default(const char* name, int& value, const int& defaultValue) override;
    int getDouble(const char* name, double& value) override;
    int getDoubleDefault(const char* name, double& value, const double& defaultValue) override;

    // Parser steps. Each works on the half-open range [begin, end) of a line.

    // Narrows [*begin, *end) to its first and last characters that are
    // neither a space nor one of the control characters 9 to 13.
    static void trim(const char** begin, const char** end);
    // Copies [begin, end) into `dest` (room for `size` bytes, terminated),
    // cutting what does not fit.
    static void substring(char* dest, size_t size, const char* begin, const char* end);
    // Heap copy of [begin, end), terminated; null when out of memory.
    static char* subStringDup(const char* begin, const char* end);
    // Name at `begin`: a letter, then letters, digits, '_' or '-'. Returns
    // the end of the name, or null when `begin` is not a letter.
    static const char* find_name(const char* begin, const char* end);
    // Skips white space up to '='. Returns the position after '=', or null.
    static const char* find_equal(const char* begin, const char* end);
    // Value after white space, quotes removed. Returns false for an empty
    // value or a badly quoted one.
    static bool find_value(const char* begin, const char* end, const char** value_begin,
                           const char** value_end);

  private:
    struct Pair {
        Pair* next;
        char* name;   // owned, new[]
        char* value;  // owned, new[]
        ~Pair() {
            delete[] name;
            delete[] value;
        }
    };

    int load(const char* path, size_t max_line_length, bool verbose, int* line_number);
    // Parses one line; 0 or the failure code. Stores the pair when valid.
    int parseLine(char* line, int line_number, bool verbose);
    const Pair* find(const char* name) const;
    // Common start of the numeric getters: the stored text of `name`, or 1000
    // (not loaded, not found) or 3 (name null), reported as `getter`.
    int findForConversion(const char* getter, const char* name, const char** text) const;

    bool loaded_ = false;
    List<Pair> pairs_;
};

}  // namespace vel_loc_fw
