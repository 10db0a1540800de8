// Reader of `name = value` configuration files.
//
// The whole file is parsed once, at creation; lookups are read-only and may
// run concurrently. A file with any bad line counts as not loaded, and every
// lookup on it answers "not found" (1000), so the Default variants fall back
// to their defaults.
//
// Grammar, one entry per line (leading and trailing white space ignored):
//   # comment line            (a '#' elsewhere is ordinary text)
//   NAME = value with spaces  (NAME: a letter, then letters, digits, '_', '-')
//   NAME = "quoted value"     (quotes removed, content kept verbatim)
// A name defined twice answers with its last definition.
//
// Lookup results: 0 found; 1000 not found or file not loaded; 2 file not
// loaded (getString); 3 name null; 4 output pointer null; 101 value empty or
// out of memory (getStringDup); 102..105 conversion errors (see each getter);
// 111 out of memory copying a default.
#pragma once

#include <stddef.h>

#include <vel_loc_fw/fw_export.h>

namespace vel_loc_fw {

class VEL_LOC_FW_EXPORT ConfigFile {
  public:
    virtual ~ConfigFile();

    virtual bool isLoaded() const = 0;

    // Points `*value` at the stored text (owned by this object).
    virtual int getString(const char* name, const char** value) = 0;
    // Copies the stored text, or `defaultValue` when not found, into a new
    // array that the caller releases with delete[]. Returns 1000 when not
    // found and `defaultValue` is null.
    virtual int getStringDup(const char* name, const char** value, const char* defaultValue) = 0;
    // strtol() in base 0. 101 empty, 102 at the limit of long, 103 errno set,
    // 104 characters after the number, 105 outside 32 bits. `value` is left
    // untouched on every failure.
    virtual int getInt32(const char* name, int& value) = 0;
    // As getInt32(), storing `defaultValue` when the name is not found.
    virtual int getInt32Default(const char* name, int& value, const int& defaultValue) = 0;
    // As getInt32Default(); a value below 0 is replaced by the default and 1
    // is returned.
    virtual int get_PZ_Int32Default(const char* name, int& value, const int& defaultValue) = 0;
    // As getInt32Default(); a value of 0 or below is replaced by the default
    // and 1 is returned.
    virtual int get_PNZ_Int32Default(const char* name, int& value, const int& defaultValue) = 0;
    // strtod(). 101 empty, 102 errno set, 103 characters after the number.
    virtual int getDouble(const char* name, double& value) = 0;
    // As getDouble(), storing `defaultValue` when the name is not found.
    virtual int getDoubleDefault(const char* name, double& value, const double& defaultValue) = 0;

    // Parses `path`. A line, newline included, must be shorter than
    // `maxLineLength`. With `verbose` every line is traced at debug and
    // verbose level under "ConfigFile". Returns the reader even when the file
    // could not be loaded (see isLoaded()), or null when out of memory; the
    // caller deletes it.
    static ConfigFile* createInstance(const char* path, size_t maxLineLength, bool verbose);
};

}  // namespace vel_loc_fw
