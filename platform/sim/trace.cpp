// Ranging traces: JSON-lines writer and a small, strict reader.
#include <varn_sim/trace.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <new>
#include <sstream>
#include <type_traits>
#include <utility>

#include <varn_sim/simulator.h>

namespace varn_sim {

namespace {

constexpr const char kFormatName[] = "varn-ranging-trace";

// ---------------------------------------------------------------------------
// Reading: a JSON value tree. Numbers keep their text so that 64-bit integers
// are read exactly.

struct Json {
    enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
    std::string text;  // number literal or string contents
    std::vector<Json> items;
    std::vector<std::pair<std::string, Json>> members;

    const Json* member(const char* name) const {
        for (const auto& m : members) {
            if (m.first == name) return &m.second;
        }
        return nullptr;
    }
};

// Thrown (and caught per line) when a line breaks the format.
struct BadLine {
    std::string why;
};

[[noreturn]] void bad(std::string why) { throw BadLine{std::move(why)}; }

class JsonReader {
  public:
    explicit JsonReader(const std::string& text) : s_(text) {}

    Json document() {
        Json value = parseValue(0);
        skipSpace();
        if (pos_ != s_.size()) bad("text after the JSON value");
        return value;
    }

  private:
    // Deep enough for the format, shallow enough for any stack.
    static constexpr int kMaxDepth = 16;

    void skipSpace() {
        while (pos_ < s_.size() &&
               (s_[pos_] == ' ' || s_[pos_] == '\t' || s_[pos_] == '\r' || s_[pos_] == '\n')) {
            ++pos_;
        }
    }
    bool take(char c) {
        skipSpace();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    void expect(char c) {
        if (!take(c))
            bad(std::string("expected '") + c + "' at column " + std::to_string(pos_ + 1));
    }
    bool literal(const char* word) {
        size_t n = std::char_traits<char>::length(word);
        if (s_.compare(pos_, n, word) != 0) return false;
        pos_ += n;
        return true;
    }

    Json parseValue(int depth) {
        if (depth > kMaxDepth) bad("nested too deeply");
        skipSpace();
        if (pos_ >= s_.size()) bad("unexpected end of line");
        Json v;
        char c = s_[pos_];
        if (c == '{') {
            ++pos_;
            v.kind = Json::kObject;
            if (take('}')) return v;
            do {
                skipSpace();
                if (pos_ >= s_.size() || s_[pos_] != '"') bad("expected a member name");
                std::string name = parseString();
                if (v.member(name.c_str()) != nullptr) bad("duplicate member \"" + name + "\"");
                expect(':');
                v.members.emplace_back(std::move(name), parseValue(depth + 1));
            } while (take(','));
            expect('}');
        } else if (c == '[') {
            ++pos_;
            v.kind = Json::kArray;
            if (take(']')) return v;
            do {
                v.items.push_back(parseValue(depth + 1));
            } while (take(','));
            expect(']');
        } else if (c == '"') {
            v.kind = Json::kString;
            v.text = parseString();
        } else if (literal("true") || literal("false")) {
            v.kind = Json::kBool;  // no field of a trace is a boolean: the value is not kept
        } else if (literal("null")) {
            v.kind = Json::kNull;
        } else {
            size_t start = pos_;
            while (pos_ < s_.size() && std::strchr("+-.0123456789eE", s_[pos_]) != nullptr) ++pos_;
            if (start == pos_) bad("unexpected character at column " + std::to_string(start + 1));
            v.kind = Json::kNumber;
            v.text = s_.substr(start, pos_ - start);
        }
        return v;
    }

    std::string parseString() {
        ++pos_;  // opening quote
        std::string out;
        while (true) {
            if (pos_ >= s_.size()) bad("unterminated string");
            char c = s_[pos_++];
            if (c == '"') return out;
            if (static_cast<unsigned char>(c) < 0x20) bad("control character in a string");
            if (c != '\\') {
                out += c;
                continue;
            }
            if (pos_ >= s_.size()) bad("unterminated string");
            c = s_[pos_++];
            switch (c) {
                case '"':
                case '\\':
                case '/': out += c; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': {
                    // Only \u00XX: the writer escapes single bytes this way.
                    unsigned value = 0;
                    if (pos_ + 4 > s_.size() ||
                        std::sscanf(s_.c_str() + pos_, "%4x", &value) != 1 || value > 0xff) {
                        bad("unsupported \\u escape");
                    }
                    pos_ += 4;
                    out += static_cast<char>(value);
                    break;
                }
                default: bad("bad escape in a string");
            }
        }
    }

    const std::string& s_;
    size_t pos_ = 0;
};

// ---------------------------------------------------------------------------
// Typed access with the member name in every complaint.

const Json& need(const Json& object, const char* name, Json::Kind kind) {
    const Json* v = object.member(name);
    if (v == nullptr) bad(std::string("missing \"") + name + "\"");
    if (v->kind != kind) bad(std::string("\"") + name + "\" has the wrong type");
    return *v;
}

int64_t integerOf(const Json& v, const char* name, int64_t lo, int64_t hi) {
    if (v.kind != Json::kNumber) bad(std::string("\"") + name + "\" is not a number");
    errno = 0;
    char* end = nullptr;
    long long value = std::strtoll(v.text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || value < lo || value > hi) {
        bad(std::string("\"") + name + "\" is not an integer in " + std::to_string(lo) + ".." +
            std::to_string(hi));
    }
    return value;
}

uint64_t unsignedOf(const Json& v, const char* name) {
    if (v.kind != Json::kNumber || v.text[0] == '-')
        bad(std::string("\"") + name + "\" is not a count");
    errno = 0;
    char* end = nullptr;
    unsigned long long value = std::strtoull(v.text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0') bad(std::string("\"") + name + "\" is not an unsigned integer");
    return value;
}

// An integer member of `object` that fits T (an enumeration: its 32-bit type).
template <typename T>
T field(const Json& object, const char* name) {
    using N = typename std::conditional_t<std::is_enum<T>::value, std::underlying_type<T>,
                                          std::common_type<T>>::type;
    const Json* v = object.member(name);
    if (v == nullptr) bad(std::string("missing \"") + name + "\"");
    return static_cast<T>(integerOf(*v, name, std::numeric_limits<N>::min(),
                                    static_cast<int64_t>(std::numeric_limits<N>::max())));
}

void readRate(const Json& v, const char* name, VARNRateInfo* rate) {
    if (v.kind != Json::kArray || v.items.size() != 6)
        bad(std::string("\"") + name + "\" is not a rate of 6 numbers");
    rate->bit_rate = static_cast<uint32_t>(integerOf(v.items[0], name, 0, UINT32_MAX));
    uint8_t* bytes[5] = {&rate->preamble, &rate->spatial_streams, &rate->bandwidth,
                         &rate->mcs_index, &rate->num_chains};
    for (int i = 0; i < 5; ++i)
        *bytes[i] = static_cast<uint8_t>(integerOf(v.items[i + 1], name, 0, 255));
}

VARNMeasurementInfo readFrame(const Json& v) {
    if (v.kind != Json::kObject) bad("a frame is not an object");
    VARNMeasurementInfo f;
    f.rtt_ps = field<int32_t>(v, "rtt_ps");
    f.rssi = field<int16_t>(v, "rssi");
    const Json& ts = need(v, "ts", Json::kArray);
    const Json& chains = need(v, "chains", Json::kArray);
    if (ts.items.size() != 2 || chains.items.size() != 2)
        bad("\"ts\" and \"chains\" hold two numbers");
    f.rssi_timestamp = unsignedOf(ts.items[0], "ts");
    f.rtt_timestamp = unsignedOf(ts.items[1], "ts");
    f.tx_chain_index = static_cast<uint8_t>(integerOf(chains.items[0], "chains", 0, 255));
    f.rx_chain_index = static_cast<uint8_t>(integerOf(chains.items[1], "chains", 0, 255));
    readRate(need(v, "tx", Json::kArray), "tx", &f.tx_rate);
    readRate(need(v, "rx", Json::kArray), "rx", &f.rx_rate);
    return f;
}

std::vector<uint8_t> hexBytes(const std::string& text, const char* name) {
    if (text.size() % 2 != 0 || text.size() > 2 * 255)
        bad(std::string("\"") + name + "\" is not up to 255 hex bytes");
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        unsigned value = 0;
        char tail = 0;
        std::string pair = text.substr(i, 2);
        if (std::sscanf(pair.c_str(), "%2x%c", &value, &tail) != 1 || !std::isxdigit(pair[0]) ||
            !std::isxdigit(pair[1])) {
            bad(std::string("\"") + name + "\" is not hex");
        }
        bytes.push_back(static_cast<uint8_t>(value));
    }
    return bytes;
}

void readElement(const Json& peer, const char* name, TraceElement* out) {
    const Json* v = peer.member(name);
    if (v == nullptr) return;
    if (v->kind != Json::kArray || v->items.size() != 2 || v->items[1].kind != Json::kString) {
        bad(std::string("\"") + name + "\" is not [id, \"hex\"]");
    }
    out->id = static_cast<uint8_t>(integerOf(v->items[0], name, 0, 255));
    out->data = hexBytes(v->items[1].text, name);
}

TracePeer readPeer(const Json& v) {
    if (v.kind != Json::kObject) bad("a peer is not an object");
    TracePeer p;
    VARNPeriodicNodeInfo& node = p.request;
    if (!parseMac(need(v, "bssid", Json::kString).text, &node.bssid)) bad("bad \"bssid\"");
    node.frequency = field<uint32_t>(v, "frequency");
    p.rtt_type = field<eVARNRttType>(v, "rtt_type");
    p.node_type = field<eVARNNodeType>(v, "node_type");
    p.target_status = field<eVARNTargetStatus>(v, "target_status");
    p.burst_number = field<uint32_t>(v, "burst_number");
    p.measurements_attempted = field<uint32_t>(v, "attempted");
    p.frames_per_burst_peer = field<uint8_t>(v, "frames_per_burst_peer");
    p.retry_after_duration = field<uint8_t>(v, "retry_after_s");
    p.burst_duration = field<uint32_t>(v, "burst_duration_ms");
    p.negotiated_burst_num = field<uint32_t>(v, "negotiated_burst_num");
    if (const Json* ssid = v.member("ssid")) {
        if (ssid->kind != Json::kString || ssid->text.size() > VARNSsid::kMaxSsidLength)
            bad("bad \"ssid\"");
        p.ssid = ssid->text;
    }
    readElement(v, "lci", &p.lci);
    readElement(v, "lcr", &p.lcr);
    if (const Json* truth = v.member("true_distance_m")) {
        char* end = nullptr;
        p.true_distance_m =
                truth->kind == Json::kNumber ? std::strtod(truth->text.c_str(), &end) : NAN;
        if (end == nullptr || *end != '\0' || !std::isfinite(p.true_distance_m))
            bad("bad \"true_distance_m\"");
        p.has_true_distance = true;
    }
    const Json& request = need(v, "request", Json::kObject);
    node.center_freq0 = field<uint32_t>(request, "center_freq0");
    node.center_freq1 = field<uint32_t>(request, "center_freq1");
    node.bandwidth = field<eVARNBandwidth>(request, "bandwidth");
    node.preamble = field<eVARNRttPreamble>(request, "preamble");
    node.rtt_type = field<eVARNRttType>(request, "rtt_type");
    node.peer_type = p.node_type;
    node.packets_per_measurement = field<uint8_t>(request, "frames");
    node.num_retries = field<uint8_t>(request, "retries");
    node.ftm_params = field<uint32_t>(request, "ftm_params");
    for (const Json& frame : need(v, "frames", Json::kArray).items)
        p.frames.push_back(readFrame(frame));
    return p;
}

TraceResponse readResponse(const Json& v) {
    if (v.kind != Json::kObject) bad("not a JSON object");
    TraceResponse r;
    r.scan_status = field<eScanStatus>(v, "scan_status");
    for (const Json& peer : need(v, "peers", Json::kArray).items) r.peers.push_back(readPeer(peer));
    return r;
}

// ---------------------------------------------------------------------------
// Writing.

void appendString(std::string& out, const std::string& text) {
    out += '"';
    for (char c : text) {
        unsigned char u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20 || u >= 0x7f) {
            // Bytes, not characters: an SSID need not be UTF-8.
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", u);
            out += escaped;
        } else {
            out += c;
        }
    }
    out += '"';
}

void appendf(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void appendf(std::string& out, const char* format, ...) {
    char buffer[160];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    if (n > 0) out.append(buffer, std::min<size_t>(static_cast<size_t>(n), sizeof(buffer) - 1));
}

void appendRate(std::string& out, const VARNRateInfo& r) {
    appendf(out, "[%" PRIu32 ",%u,%u,%u,%u,%u]", r.bit_rate, r.preamble, r.spatial_streams,
            r.bandwidth, r.mcs_index, r.num_chains);
}

void appendElement(std::string& out, const char* name, const TraceElement& e) {
    if (e.data.empty()) return;
    appendf(out, ",\"%s\":[%u,\"", name, e.id);
    for (uint8_t b : e.data) appendf(out, "%02x", b);
    out += "\"]";
}

void appendPeer(std::string& out, const TracePeer& p) {
    const VARNPeriodicNodeInfo& n = p.request;
    out += "{\"bssid\":\"" + formatMac(n.bssid) + "\"";
    appendf(out,
            ",\"frequency\":%" PRIu32
            ",\"rtt_type\":%d,\"node_type\":%d,\"target_status\":%d"
            ",\"burst_number\":%" PRIu32 ",\"attempted\":%" PRIu32
            ",\"frames_per_burst_peer\":%u,\"retry_after_s\":%u",
            n.frequency, static_cast<int>(p.rtt_type), static_cast<int>(p.node_type),
            static_cast<int>(p.target_status), p.burst_number, p.measurements_attempted,
            p.frames_per_burst_peer, p.retry_after_duration);
    appendf(out, ",\"burst_duration_ms\":%" PRIu32 ",\"negotiated_burst_num\":%" PRIu32,
            p.burst_duration, p.negotiated_burst_num);
    if (!p.ssid.empty()) {
        out += ",\"ssid\":";
        appendString(out, p.ssid);
    }
    appendElement(out, "lci", p.lci);
    appendElement(out, "lcr", p.lcr);
    if (p.has_true_distance) appendf(out, ",\"true_distance_m\":%.17g", p.true_distance_m);
    appendf(out,
            ",\"request\":{\"center_freq0\":%" PRIu32 ",\"center_freq1\":%" PRIu32
            ",\"bandwidth\":%d,\"preamble\":%d,\"rtt_type\":%d,\"frames\":%u,\"retries\":%u"
            ",\"ftm_params\":%" PRIu32 "}",
            n.center_freq0, n.center_freq1, static_cast<int>(n.bandwidth),
            static_cast<int>(n.preamble), static_cast<int>(n.rtt_type), n.packets_per_measurement,
            n.num_retries, n.ftm_params);
    out += ",\"frames\":[";
    for (size_t i = 0; i < p.frames.size(); ++i) {
        const VARNMeasurementInfo& f = p.frames[i];
        appendf(out, "%s{\"rtt_ps\":%" PRId32 ",\"rssi\":%d,\"ts\":[%" PRIu64 ",%" PRIu64 "]",
                i > 0 ? "," : "", f.rtt_ps, f.rssi, f.rssi_timestamp, f.rtt_timestamp);
        appendf(out, ",\"chains\":[%u,%u],\"tx\":", f.tx_chain_index, f.rx_chain_index);
        appendRate(out, f.tx_rate);
        out += ",\"rx\":";
        appendRate(out, f.rx_rate);
        out += '}';
    }
    out += "]}";
}

}  // namespace

TracePeer TracePeer::of(const VARNPeriodicNodeInfo& node, const VARNScanMeasurement& m) {
    TracePeer p;
    p.request = node;
    p.request.bssid = m.bssid;
    p.request.frequency = m.frequency;
    p.rtt_type = m.rtt_type;
    p.node_type = m.node_type;
    p.target_status = m.target_status;
    p.burst_number = m.burst_number;
    p.measurements_attempted = m.measurements_attempted;
    p.frames_per_burst_peer = m.frames_per_burst_peer;
    p.retry_after_duration = m.retry_after_duration;
    p.burst_duration = m.burst_duration;
    p.negotiated_burst_num = m.negotiated_burst_num;
    char ssid[VARNSsid::kMaxSsidLength];
    uint32_t length = 0;
    m.ssid.getSSID(ssid, &length);
    p.ssid.assign(ssid, std::min<uint32_t>(length, VARNSsid::kMaxSsidLength));
    if (m.lci.data != nullptr) p.lci = {m.lci.id, {m.lci.data, m.lci.data + m.lci.length}};
    if (m.lcr.data != nullptr) p.lcr = {m.lcr.id, {m.lcr.data, m.lcr.data + m.lcr.length}};
    for (uint32_t i = 0; i < m.measurements.size(); ++i) {
        if (m.measurements[i] != nullptr) p.frames.push_back(*m.measurements[i]);
    }
    return p;
}

VARNScanMeasurement* TracePeer::toMeasurement() const {
    VARNScanMeasurement* m = new (std::nothrow) VARNScanMeasurement();
    if (m == nullptr) return nullptr;
    m->bssid = request.bssid;
    m->frequency = request.frequency;
    m->node_type = node_type;
    m->rtt_type = rtt_type;
    m->target_status = target_status;
    m->burst_number = burst_number;
    m->measurements_attempted = measurements_attempted;
    m->frames_per_burst_peer = frames_per_burst_peer;
    m->retry_after_duration = retry_after_duration;
    m->burst_duration = burst_duration;
    m->negotiated_burst_num = negotiated_burst_num;
    m->ssid.setSSID(ssid.data(), static_cast<uint32_t>(ssid.size()));
    bool ok = (lci.data.empty() ||
               m->setLci(lci.id, lci.data.data(), static_cast<uint8_t>(lci.data.size())) == 0) &&
              (lcr.data.empty() ||
               m->setLcr(lcr.id, lcr.data.data(), static_cast<uint8_t>(lcr.data.size())) == 0);
    for (size_t i = 0; ok && i < frames.size(); ++i) {
        VARNMeasurementInfo* info = new (std::nothrow) VARNMeasurementInfo(frames[i]);
        ok = info != nullptr && m->measurements.push_back(info) == 0;
        if (!ok) delete info;
    }
    if (!ok) {
        delete m;
        return nullptr;
    }
    return m;
}

bool Trace::parse(const std::string& text, Trace* out, std::vector<std::string>* problems) {
    Trace trace;
    std::istringstream lines(text);
    std::string line;
    int number = 0;
    bool header = false;
    auto report = [&](const std::string& why) {
        if (problems != nullptr) problems->push_back("line " + std::to_string(number) + ": " + why);
    };
    while (std::getline(lines, line)) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        try {
            Json v = JsonReader(line).document();
            if (header) {
                trace.responses.push_back(readResponse(v));
                continue;
            }
            const Json* format = v.member("format");
            const Json* version = v.member("version");
            header = format != nullptr && format->text == kFormatName && version != nullptr &&
                     version->kind == Json::kNumber && version->text == std::to_string(kVersion);
            if (!header) bad("not a version " + std::to_string(kVersion) + " ranging trace header");
        } catch (const BadLine& e) {
            report(e.why);
            // Without its header nothing else of the text can be trusted.
            if (!header) return false;
        }
    }
    if (!header) {
        if (problems != nullptr) problems->push_back("no ranging trace header");
        return false;
    }
    *out = std::move(trace);
    return true;
}

bool Trace::parseFile(const std::string& path, Trace* out, std::vector<std::string>* problems) {
    std::ifstream file(path);
    if (!file) {
        if (problems != nullptr) problems->push_back("cannot read " + path);
        return false;
    }
    std::stringstream text;
    text << file.rdbuf();
    return parse(text.str(), out, problems);
}

std::string Trace::headerLine() {
    return std::string("{\"format\":\"") + kFormatName +
           "\",\"version\":" + std::to_string(kVersion) + "}";
}

std::string Trace::responseLine(const TraceResponse& response) {
    std::string out;
    appendf(out, "{\"scan_status\":%d,\"peers\":[", static_cast<int>(response.scan_status));
    for (size_t i = 0; i < response.peers.size(); ++i) {
        if (i > 0) out += ',';
        appendPeer(out, response.peers[i]);
    }
    return out + "]}";
}

std::string Trace::format() const {
    std::string out = headerLine() + "\n";
    for (const TraceResponse& r : responses) out += responseLine(r) + "\n";
    return out;
}

bool Trace::writeFile(const std::string& path, std::string* error) const {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << format();
    file.close();
    if (!file) {
        if (error != nullptr) *error = "cannot write " + path;
        return false;
    }
    return true;
}

}  // namespace varn_sim
