// Reading ranging traces: bad lines are reported with their number and skipped.
#include <varn_sim/trace.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using varn_sim::Trace;

// A response with one peer of one frame; `peer_tail` and `frame_tail` are
// spliced into the peer and the frame.
std::string line(const std::string& peer_tail = "", const std::string& frame_tail = "") {
    return "{\"scan_status\":1,\"peers\":[{\"bssid\":\"02:5a:00:00:00:01\",\"frequency\":5180,"
           "\"rtt_type\":2,\"node_type\":1,\"target_status\":0,\"burst_number\":0,\"attempted\":8,"
           "\"frames_per_burst_peer\":8,\"retry_after_s\":0,\"burst_duration_ms\":20,"
           "\"negotiated_burst_num\":1,\"request\":{\"center_freq0\":5210,\"center_freq1\":0,"
           "\"bandwidth\":2,\"preamble\":2,\"rtt_type\":2,\"frames\":8,\"retries\":3,"
           "\"ftm_params\":7}" +
           peer_tail +
           ",\"frames\":[{\"rtt_ps\":-20000,\"rssi\":-120,\"ts\":[18446744073709551615,7],"
           "\"chains\":[0,1],\"tx\":[60,0,0,2,12,1],\"rx\":[60,0,0,2,12,2]" +
           frame_tail + "}]}]}";
}

TEST(TraceFormat, BadLinesAreReportedWithTheirNumberAndSkipped) {
    const struct {
        std::string text;
        const char* why;
    } bad[] = {
            {"not json", "unexpected character"},
            {line() + " x", "text after"},
            {line("", ",\"rssi\":-1"), "duplicate member \"rssi\""},
            {"{\"scan_status\":2147483648,\"peers\":[]}",
             "is not an integer in -2147483648..2147483647"},
            {line(",\"ssid\":\"\\q\""), "bad escape"},
            {line(",\"lci\":[8,\"0g\"]"), "\"lci\" is not hex"},
            {line(",\"true_distance_m\":\"far\""), "bad \"true_distance_m\""},
            {"{\"scan_status\":1}", "missing \"peers\""},
            {"{\"scan_status\":1,\"peers\":{}}", "\"peers\" has the wrong type"},
            {"{\"scan_status\":1,\"peers\":[{\"bssid\":\"02:5a\"}]}", "bad \"bssid\""},
            {"{\"scan_status\":1.5,\"peers\":[]}", "\"scan_status\" is not an integer"},
            {std::string(40, '[') + std::string(40, ']'), "nested too deeply"},
            {"{\"scan_status\":1,\"peers\":[", "unexpected end"},
    };
    std::string text = Trace::headerLine() + "\n" + line() + "\n\n";
    for (const auto& b : bad) text += b.text + "\n";
    text += line(",\"ssid\":\"caf\\u00e9\",\"true_distance_m\":2.5") + "\n";

    Trace trace;
    std::vector<std::string> problems;
    ASSERT_TRUE(Trace::parse(text, &trace, &problems));
    ASSERT_EQ(problems.size(), std::size(bad));
    for (size_t i = 0; i < problems.size(); ++i) {
        EXPECT_EQ(problems[i].rfind("line " + std::to_string(i + 4) + ": ", 0), 0u) << problems[i];
        EXPECT_NE(problems[i].find(bad[i].why), std::string::npos) << problems[i];
    }
    ASSERT_EQ(trace.responses.size(), 2u);
    const varn_sim::TracePeer& peer = trace.responses[1].peers[0];
    EXPECT_EQ(peer.ssid, "caf\xe9");
    EXPECT_DOUBLE_EQ(peer.true_distance_m, 2.5);
    EXPECT_EQ(peer.frames[0].rssi_timestamp, UINT64_MAX);
    EXPECT_EQ(peer.frames[0].rx_rate.num_chains, 2);
    // The writer gives back the text it read.
    EXPECT_EQ(Trace::responseLine(trace.responses[0]), line());

    for (const std::string& headless :
         {line(), std::string("{\"format\":\"varn-ranging-trace\",\"version\":2}"),
          std::string()}) {
        problems.clear();
        EXPECT_FALSE(Trace::parse(headless + "\n" + line(), &trace, &problems));
        EXPECT_EQ(problems.size(), 1u);
    }
}

}  // namespace
