// Feeds arbitrary lines to the ranging-trace reader after a valid header.
// Whatever it accepts must survive writing and reading again unchanged.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include <varn_sim/trace.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = varn_sim::Trace::headerLine() + "\n" +
                             std::string(reinterpret_cast<const char*>(data), size);
    varn_sim::Trace trace;
    std::vector<std::string> problems;
    if (!varn_sim::Trace::parse(text, &trace, &problems)) abort();  // the header is valid
    const std::string written = trace.format();
    varn_sim::Trace again;
    problems.clear();
    if (!varn_sim::Trace::parse(written, &again, &problems) || !problems.empty() ||
        again.format() != written) {
        abort();
    }
    return 0;
}
