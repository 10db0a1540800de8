// Scenario of the simulated world: the built-in default and the text format.
#include <varn_sim/simulator.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace varn_sim {

namespace {

AccessPoint makeAp(const char* mac, const char* ssid, uint32_t freq, uint32_t center,
                   eVARNBandwidth width, double distance_m) {
    AccessPoint ap;
    parseMac(mac, &ap.bssid);
    ap.ssid = ssid;
    ap.frequency = freq;
    ap.center_freq0 = center;
    ap.width = width;
    ap.distance_m = distance_m;
    return ap;
}

// Centre of the first segment for the usual 5 GHz channelisation.
uint32_t defaultCenter(uint32_t freq, uint32_t width_mhz) {
    if (width_mhz <= 20 || freq < 5000) return freq;
    uint32_t block = width_mhz;                       // 40, 80 or 160 MHz blocks
    uint32_t base = 5170;                             // lower edge of channel 36
    if (freq >= 5735) base = 5735;                    // channels 149 and up
    uint32_t offset = (freq - base) / block * block;  // start of the block
    return base + offset + block / 2;
}

bool parseDouble(const std::string& text, double* out) {
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0') return false;
    *out = value;
    return true;
}

bool parseUnsigned(const std::string& text, uint64_t* out) {
    char* end = nullptr;
    unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || text[0] == '-') return false;
    *out = value;
    return true;
}

bool parseHex(const std::string& text, std::vector<uint8_t>* out) {
    if (text.size() % 2 != 0 || text.size() > 510) return false;
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        char* end = nullptr;
        std::string pair = text.substr(i, 2);
        unsigned long value = std::strtoul(pair.c_str(), &end, 16);
        if (*end != '\0') return false;
        bytes.push_back(static_cast<uint8_t>(value));
    }
    *out = bytes;
    return true;
}

// Parses the fields after "ap"; returns an error text, empty on success.
std::string parseAp(std::istringstream& in, AccessPoint* ap) {
    std::string mac, ssid, freq, width, distance;
    if (!(in >> mac >> ssid >> freq >> width >> distance)) return "ap needs 5 fields";
    if (!parseMac(mac, &ap->bssid)) return "bad bssid " + mac;
    ap->ssid = ssid == "-" ? "" : ssid;
    if (ap->ssid.size() > 32) return "ssid longer than 32 bytes";
    uint64_t value = 0;
    if (!parseUnsigned(freq, &value) || value == 0) return "bad frequency " + freq;
    ap->frequency = static_cast<uint32_t>(value);
    if (!parseUnsigned(width, &value)) return "bad width " + width;
    switch (value) {
        case 20: ap->width = VARN_BW_20MHZ; break;
        case 40: ap->width = VARN_BW_40MHZ; break;
        case 80: ap->width = VARN_BW_80MHZ; break;
        case 160: ap->width = VARN_BW_160MHZ; break;
        default: return "width must be 20, 40, 80 or 160";
    }
    if (!parseDouble(distance, &ap->distance_m) || ap->distance_m < 0) {
        return "bad distance " + distance;
    }
    ap->center_freq0 = defaultCenter(ap->frequency, ap->widthMhz());
    std::string option;
    while (in >> option) {
        size_t eq = option.find('=');
        if (eq == std::string::npos) return "expected key=value, got " + option;
        std::string key = option.substr(0, eq), val = option.substr(eq + 1);
        double number = 0;
        bool ok = true;
        if (key == "center") {
            ok = parseUnsigned(val, &value);
            ap->center_freq0 = static_cast<uint32_t>(value);
        } else if (key == "one_sided" || key == "two_sided") {
            ok = val == "0" || val == "1";
            (key == "one_sided" ? ap->one_sided : ap->two_sided) = val == "1";
        } else if (key == "tx_power") {
            ok = parseDouble(val, &ap->tx_power_dbm);
        } else if (key == "lci") {
            ok = parseHex(val, &ap->lci);
        } else if (key == "lcr") {
            ok = parseHex(val, &ap->lcr);
        } else if (key == "appear" || key == "disappear") {
            ok = parseUnsigned(val, &value) && value <= UINT32_MAX;
            (key == "appear" ? ap->appear_cycle : ap->disappear_cycle) =
                    static_cast<uint32_t>(value);
        } else if (key == "rssi_step") {
            ok = parseDouble(val, &number);
            ap->rssi_step_db = number;
        } else {
            return "unknown key " + key;
        }
        if (!ok) return "bad value for " + key;
    }
    return "";
}

}  // namespace

Scenario Scenario::defaultScenario() {
    Scenario s;
    AccessPoint office = makeAp("02:5a:00:00:00:01", "VarnLab-Office", 5180, 5210, VARN_BW_80MHZ, 3.0);
    // LCI of 16 bytes and a civic address, as a responder would announce them.
    office.lci = {0x00, 0x10, 0x52, 0x83, 0x4d, 0x12, 0xef, 0xd2, 0xb0, 0x8b,
                  0x9b, 0x4b, 0xf1, 0xcc, 0x2c, 0x00};
    office.lcr = {'U', 'S', 0x00, 0x01, 0x02, 'C', 'A', 0x03, 0x08, 'M', 'V'};
    s.access_points.push_back(office);
    s.access_points.push_back(
            makeAp("02:5a:00:00:00:02", "VarnLab-Hall", 5200, 5190, VARN_BW_40MHZ, 7.5));
    AccessPoint legacy = makeAp("02:5a:00:00:00:03", "VarnLab-2G", 2437, 2437, VARN_BW_20MHZ, 12.0);
    legacy.two_sided = false;  // answers one-sided ranging only
    s.access_points.push_back(legacy);
    s.access_points.push_back(
            makeAp("02:5a:00:00:00:04", "VarnLab-Lobby", 5745, 5775, VARN_BW_80MHZ, 20.0));
    AccessPoint cafe = makeAp("02:5a:00:00:00:05", "VarnLab-Cafe", 2462, 2462, VARN_BW_20MHZ, 4.5);
    cafe.rssi_step_db = -4.0;  // walking away: weaker by 4 dB each scan cycle, gone at 8
    cafe.disappear_cycle = 8;
    s.access_points.push_back(cafe);
    // Far beyond the receiver's sensitivity: never answers.
    s.access_points.push_back(
            makeAp("02:5a:00:00:00:06", "VarnLab-Annex", 5500, 5500, VARN_BW_20MHZ, 400.0));
    return s;
}

int Scenario::parse(const std::string& text, Scenario* out, std::string* error) {
    Scenario s;
    std::istringstream lines(text);
    std::string line;
    int number = 0;
    double default_tx_power = 20.0;
    while (std::getline(lines, line)) {
        ++number;
        size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        std::istringstream in(line);
        std::string keyword, value;
        if (!(in >> keyword)) continue;
        std::string problem;
        double number_value = 0;
        uint64_t unsigned_value = 0;
        if (keyword == "ap") {
            AccessPoint ap;
            ap.tx_power_dbm = default_tx_power;
            problem = parseAp(in, &ap);
            if (problem.empty()) s.access_points.push_back(ap);
        } else if (!(in >> value)) {
            problem = keyword + " needs a value";
        } else if (keyword == "seed") {
            if (!parseUnsigned(value, &s.seed)) problem = "bad seed";
        } else if (keyword == "chain_offset_ps" || keyword == "air_time_ms") {
            if (!parseUnsigned(value, &unsigned_value) || unsigned_value > 1000000) {
                problem = "bad " + keyword;
            } else if (keyword == "chain_offset_ps") {
                s.chain_offset_ps = static_cast<int32_t>(unsigned_value);
            } else {
                s.air_time_ms = static_cast<uint32_t>(unsigned_value);
            }
        } else if (!parseDouble(value, &number_value)) {
            problem = "bad number for " + keyword;
        } else if (keyword == "path_loss_exponent") {
            s.path_loss_exponent = number_value;
        } else if (keyword == "tx_power_dbm") {
            default_tx_power = number_value;
        } else if (keyword == "sensitivity_dbm") {
            s.sensitivity_dbm = number_value;
        } else if (keyword == "rssi_noise_db") {
            s.rssi_noise_db = number_value;
        } else if (keyword == "frame_loss" || keyword == "multipath" || keyword == "bw_fallback") {
            if (number_value < 0 || number_value > 1) {
                problem = keyword + " must be a probability";
            } else {
                (keyword == "frame_loss"  ? s.frame_loss
                 : keyword == "multipath" ? s.multipath
                                          : s.bw_fallback) = number_value;
            }
        } else {
            problem = "unknown statement " + keyword;
        }
        if (problem.empty() && keyword != "ap" && (in >> value)) problem = "trailing text";
        if (!problem.empty()) {
            if (error != nullptr) *error = problem;
            return number;
        }
    }
    *out = s;
    return 0;
}

int Scenario::parseFile(const std::string& path, Scenario* out, std::string* error) {
    std::ifstream file(path);
    if (!file) {
        if (error != nullptr) *error = "cannot read " + path;
        return -1;
    }
    std::stringstream text;
    text << file.rdbuf();
    return parse(text.str(), out, error);
}

std::string formatMac(const VARNMacAddress& mac) {
    char text[18];
    std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return text;
}

bool parseMac(const std::string& text, VARNMacAddress* out) {
    unsigned int b[6];
    char tail;
    if (text.size() != 17 ||
        std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5], &tail) != 6) {
        return false;
    }
    for (int i = 0; i < 6; ++i) (*out)[i] = static_cast<uint8_t>(b[i]);
    return true;
}

}  // namespace varn_sim
