// Postcard encoding and decoding against msgpack-c on the same content.
//
// The message: 16 fields of mixed types, one of them a nested card (a nested
// map for msgpack) of 4 fields. Encoding builds the complete message from
// nothing, buffers included, and releases it. Decoding starts from the encoded
// bytes and looks up every field by name, the nested ones included; msgpack
// unpacks the message and then searches the map by key.
//
// Each row alternates rounds of both codecs (see bench_ratio.h); its ratio is
// the postcard's time divided by msgpack's.
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <vector>

#include <msgpack.h>

#include <vel_loc_fw/postcard.h>

#include "bench_ratio.h"

namespace {

using vel_loc_fw::InPostcard;
using vel_loc_fw::OutPostcard;

struct Sample {
    int id = 42;
    unsigned int seq = 7001;
    long long ts = 1700000000123LL;
    double lat = 48.137154;
    double lon = 11.576124;
    float acc = 3.5f;
    short rssi = -67;
    unsigned short freq = 5180;
    unsigned char chan = 36;
    bool valid = true;
    const char* ssid = "varn-lab-5g";
    const char* bssid = "a0:b1:c2:d3:e4:f5";
    uint8_t raw[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    int rtt[8] = {1200, 1210, 1190, 1205, 1199, 1202, 1201, 1198};
    unsigned long long flags = 0x0123456789ABCDEFULL;
    // The nested card "meta".
    int meta_a = 5;
    const char* meta_b = "ranging";
    double meta_c = 0.125;
    bool meta_d = false;
};

const Sample kSample;

// --- postcard ---

// Every codec function stays a call of its own, so that neither side is
// folded into the timing loop.

// Returns the finished writer; the caller deletes it.
__attribute__((noinline)) OutPostcard* encode_postcard(const Sample& s) {
    OutPostcard* meta = OutPostcard::createInstance();
    meta->init();
    meta->addInt32("a", s.meta_a);
    meta->addString("b", s.meta_b);
    meta->addDouble("c", s.meta_c);
    meta->addBool("d", s.meta_d);
    meta->finalize();

    OutPostcard* out = OutPostcard::createInstance();
    out->init();
    out->addInt32("id", s.id);
    out->addUInt32("seq", s.seq);
    out->addInt64("ts", s.ts);
    out->addDouble("lat", s.lat);
    out->addDouble("lon", s.lon);
    out->addFloat("acc", s.acc);
    out->addInt16("rssi", s.rssi);
    out->addUInt16("freq", s.freq);
    out->addUInt8("chan", s.chan);
    out->addBool("valid", s.valid);
    out->addString("ssid", s.ssid);
    out->addString("bssid", s.bssid);
    out->addBlob("raw", s.raw, sizeof(s.raw));
    out->addArrayInt32("rtt", 8, s.rtt);
    out->addUInt64("flags", s.flags);
    out->addCard("meta", meta);
    out->finalize();
    delete meta;
    return out;
}

// Returns the number of fields read, for checking and to keep the work alive.
__attribute__((noinline)) int decode_postcard(const void* bytes, size_t size, Sample* s) {
    InPostcard* in = InPostcard::createInstance();
    in->init(bytes, size, false);
    int found = 0;
    found += in->getInt32("id", s->id) == 0;
    found += in->getUInt32("seq", s->seq) == 0;
    found += in->getInt64("ts", s->ts) == 0;
    found += in->getDouble("lat", s->lat) == 0;
    found += in->getDouble("lon", s->lon) == 0;
    found += in->getFloat("acc", s->acc) == 0;
    found += in->getInt16("rssi", s->rssi) == 0;
    found += in->getUInt16("freq", s->freq) == 0;
    found += in->getUInt8("chan", s->chan) == 0;
    found += in->getBool("valid", s->valid) == 0;
    found += in->getString("ssid", &s->ssid) == 0;
    found += in->getString("bssid", &s->bssid) == 0;
    const void* raw = nullptr;
    size_t raw_length = 0;
    if (in->getBlob("raw", &raw, &raw_length) == 0 && raw_length == sizeof(s->raw)) {
        memcpy(s->raw, raw, raw_length);
        ++found;
    }
    int count = 8;
    found += in->getArrayInt32("rtt", &count, s->rtt) == 0;
    found += in->getUInt64("flags", s->flags) == 0;
    InPostcard* meta = nullptr;
    if (in->getCard("meta", &meta, 0) == 0) {
        ++found;
        found += meta->getInt32("a", s->meta_a) == 0;
        found += meta->getString("b", &s->meta_b) == 0;
        found += meta->getDouble("c", s->meta_c) == 0;
        found += meta->getBool("d", s->meta_d) == 0;
        delete meta;
    }
    delete in;
    return found;
}

// --- msgpack-c ---

void pack_key(msgpack_packer* pk, const char* key) {
    const size_t length = strlen(key);
    msgpack_pack_str(pk, length);
    msgpack_pack_str_body(pk, key, length);
}

void pack_string(msgpack_packer* pk, const char* key, const char* value) {
    pack_key(pk, key);
    const size_t length = strlen(value);
    msgpack_pack_str(pk, length);
    msgpack_pack_str_body(pk, value, length);
}

// Packs into `buffer`, which the caller initialised and destroys.
__attribute__((noinline)) void encode_msgpack(const Sample& s, msgpack_sbuffer* buffer) {
    msgpack_packer pk;
    msgpack_packer_init(&pk, buffer, msgpack_sbuffer_write);
    msgpack_pack_map(&pk, 16);
    pack_key(&pk, "id");
    msgpack_pack_int32(&pk, s.id);
    pack_key(&pk, "seq");
    msgpack_pack_uint32(&pk, s.seq);
    pack_key(&pk, "ts");
    msgpack_pack_int64(&pk, s.ts);
    pack_key(&pk, "lat");
    msgpack_pack_double(&pk, s.lat);
    pack_key(&pk, "lon");
    msgpack_pack_double(&pk, s.lon);
    pack_key(&pk, "acc");
    msgpack_pack_float(&pk, s.acc);
    pack_key(&pk, "rssi");
    msgpack_pack_int16(&pk, s.rssi);
    pack_key(&pk, "freq");
    msgpack_pack_uint16(&pk, s.freq);
    pack_key(&pk, "chan");
    msgpack_pack_uint8(&pk, s.chan);
    pack_key(&pk, "valid");
    if (s.valid) {
        msgpack_pack_true(&pk);
    } else {
        msgpack_pack_false(&pk);
    }
    pack_string(&pk, "ssid", s.ssid);
    pack_string(&pk, "bssid", s.bssid);
    pack_key(&pk, "raw");
    msgpack_pack_bin(&pk, sizeof(s.raw));
    msgpack_pack_bin_body(&pk, s.raw, sizeof(s.raw));
    pack_key(&pk, "rtt");
    msgpack_pack_array(&pk, 8);
    for (int value : s.rtt) msgpack_pack_int32(&pk, value);
    pack_key(&pk, "flags");
    msgpack_pack_uint64(&pk, s.flags);
    pack_key(&pk, "meta");
    msgpack_pack_map(&pk, 4);
    pack_key(&pk, "a");
    msgpack_pack_int32(&pk, s.meta_a);
    pack_string(&pk, "b", s.meta_b);
    pack_key(&pk, "c");
    msgpack_pack_double(&pk, s.meta_c);
    pack_key(&pk, "d");
    if (s.meta_d) {
        msgpack_pack_true(&pk);
    } else {
        msgpack_pack_false(&pk);
    }
}

const msgpack_object* find(const msgpack_object& map, const char* key) {
    if (map.type != MSGPACK_OBJECT_MAP) return nullptr;
    const size_t length = strlen(key);
    for (uint32_t i = 0; i < map.via.map.size; ++i) {
        const msgpack_object_kv& kv = map.via.map.ptr[i];
        if (kv.key.type == MSGPACK_OBJECT_STR && kv.key.via.str.size == length &&
            memcmp(kv.key.via.str.ptr, key, length) == 0) {
            return &kv.val;
        }
    }
    return nullptr;
}

__attribute__((noinline)) int decode_msgpack(const char* bytes, size_t size, Sample* s) {
    msgpack_unpacked unpacked;
    msgpack_unpacked_init(&unpacked);
    int found = 0;
    size_t offset = 0;
    if (msgpack_unpack_next(&unpacked, bytes, size, &offset) == MSGPACK_UNPACK_SUCCESS) {
        const msgpack_object& root = unpacked.data;
        const msgpack_object* o = nullptr;
        if ((o = find(root, "id")) != nullptr) s->id = static_cast<int>(o->via.i64), ++found;
        if ((o = find(root, "seq")) != nullptr) s->seq = static_cast<unsigned>(o->via.u64), ++found;
        if ((o = find(root, "ts")) != nullptr) s->ts = o->via.i64, ++found;
        if ((o = find(root, "lat")) != nullptr) s->lat = o->via.f64, ++found;
        if ((o = find(root, "lon")) != nullptr) s->lon = o->via.f64, ++found;
        if ((o = find(root, "acc")) != nullptr) s->acc = static_cast<float>(o->via.f64), ++found;
        if ((o = find(root, "rssi")) != nullptr) s->rssi = static_cast<short>(o->via.i64), ++found;
        if ((o = find(root, "freq")) != nullptr) {
            s->freq = static_cast<unsigned short>(o->via.u64), ++found;
        }
        if ((o = find(root, "chan")) != nullptr) {
            s->chan = static_cast<unsigned char>(o->via.u64), ++found;
        }
        if ((o = find(root, "valid")) != nullptr) s->valid = o->via.boolean, ++found;
        if ((o = find(root, "ssid")) != nullptr) s->ssid = o->via.str.ptr, ++found;
        if ((o = find(root, "bssid")) != nullptr) s->bssid = o->via.str.ptr, ++found;
        if ((o = find(root, "raw")) != nullptr && o->via.bin.size == sizeof(s->raw)) {
            memcpy(s->raw, o->via.bin.ptr, sizeof(s->raw));
            ++found;
        }
        if ((o = find(root, "rtt")) != nullptr && o->via.array.size == 8) {
            for (int i = 0; i < 8; ++i) s->rtt[i] = static_cast<int>(o->via.array.ptr[i].via.i64);
            ++found;
        }
        if ((o = find(root, "flags")) != nullptr) s->flags = o->via.u64, ++found;
        const msgpack_object* meta = find(root, "meta");
        if (meta != nullptr) {
            ++found;
            if ((o = find(*meta, "a")) != nullptr)
                s->meta_a = static_cast<int>(o->via.i64), ++found;
            if ((o = find(*meta, "b")) != nullptr) s->meta_b = o->via.str.ptr, ++found;
            if ((o = find(*meta, "c")) != nullptr) s->meta_c = o->via.f64, ++found;
            if ((o = find(*meta, "d")) != nullptr) s->meta_d = o->via.boolean, ++found;
        }
    }
    msgpack_unpacked_destroy(&unpacked);
    return found;
}

// --- rows ---

void encode_postcard_ops(int64_t ops) {
    for (int64_t i = 0; i < ops; ++i) {
        OutPostcard* out = encode_postcard(kSample);
        benchmark::DoNotOptimize(out->getEncodedBuffer()->getBuffer());
        delete out;
    }
}

void encode_msgpack_ops(int64_t ops) {
    for (int64_t i = 0; i < ops; ++i) {
        msgpack_sbuffer buffer;
        msgpack_sbuffer_init(&buffer);
        encode_msgpack(kSample, &buffer);
        benchmark::DoNotOptimize(buffer.data);
        msgpack_sbuffer_destroy(&buffer);
    }
}

struct Encoded {
    std::vector<uint8_t> postcard;
    std::vector<char> msgpack;
};

Encoded encode_both() {
    Encoded encoded;
    OutPostcard* out = encode_postcard(kSample);
    const uint8_t* bytes = static_cast<const uint8_t*>(out->getEncodedBuffer()->getBuffer());
    encoded.postcard.assign(bytes, bytes + out->getEncodedBuffer()->getSize());
    delete out;
    msgpack_sbuffer buffer;
    msgpack_sbuffer_init(&buffer);
    encode_msgpack(kSample, &buffer);
    encoded.msgpack.assign(buffer.data, buffer.data + buffer.size);
    msgpack_sbuffer_destroy(&buffer);
    return encoded;
}

// 20 lookups: 15 plain fields, the card, and its 4 fields.
constexpr int kFieldsPerMessage = 20;

void BM_Encode(benchmark::State& state) {
    varn_bench::ratio_row(state, "postcard encode / msgpack-c pack", {0.6},
                          varn_bench::Clock::kThreadCpu, encode_postcard_ops, encode_msgpack_ops);
}
BENCHMARK(BM_Encode)->Iterations(1);

void BM_Decode(benchmark::State& state) {
    const Encoded encoded = encode_both();
    varn_bench::ratio_row(
            state, "postcard decode of every field by name / msgpack-c unpack + find", {1.0},
            varn_bench::Clock::kThreadCpu,
            [&](int64_t ops) {
                for (int64_t i = 0; i < ops; ++i) {
                    Sample s;
                    if (decode_postcard(encoded.postcard.data(), encoded.postcard.size(), &s) !=
                        kFieldsPerMessage) {
                        state.SkipWithError("postcard decoding lost a field");
                    }
                    benchmark::DoNotOptimize(s);
                }
            },
            [&](int64_t ops) {
                for (int64_t i = 0; i < ops; ++i) {
                    Sample s;
                    if (decode_msgpack(encoded.msgpack.data(), encoded.msgpack.size(), &s) !=
                        kFieldsPerMessage) {
                        state.SkipWithError("msgpack decoding lost a field");
                    }
                    benchmark::DoNotOptimize(s);
                }
            });
}
BENCHMARK(BM_Decode)->Iterations(1);

}  // namespace

int main(int argc, char** argv) { return varn_bench::main(argc, argv); }
