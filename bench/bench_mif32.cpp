// Building a message of 1,000 mixed entries, against msgpack-c packing the same keys and values.
// The entries come from a table of random records, so that neither side knows types or sizes
// beforehand.
#include <benchmark/benchmark.h>

#include <msgpack.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "mif32.h"

namespace {

enum class Type { boolean, number, longNumber, text, binary };

struct Record {
    Type type;
    std::uint16_t id;
    std::uint64_t number;
    std::string bytes;
};

const std::vector<Record> records = [] {
    std::mt19937_64 random(1);
    std::vector<Record> result(1000);
    for (Record& record : result) {
        record.type = static_cast<Type>(random() % 5);
        record.id = static_cast<std::uint16_t>(random() % 0xFFFF);
        record.number = random();
        record.bytes.assign(random() % 40, 'x');
    }
    return result;
}();

void add(Mif32& mif, const Record& record) {
    switch (record.type) {
    case Type::boolean:
        mif.AddBool(record.id, record.number % 2 != 0);
        break;
    case Type::number:
        mif.AddInt(record.id, static_cast<unsigned int>(record.number));
        break;
    case Type::longNumber:
        mif.AddInt64(record.id, record.number);
        break;
    case Type::text:
        mif.AddStr(record.id, record.bytes.c_str());
        break;
    case Type::binary:
        mif.AddBin(record.id, reinterpret_cast<const unsigned char*>(record.bytes.data()),
                   static_cast<unsigned int>(record.bytes.size()));
        break;
    }
}

void pack(msgpack_packer& packer, const Record& record) {
    msgpack_pack_uint16(&packer, record.id);
    switch (record.type) {
    case Type::boolean:
        record.number % 2 != 0 ? msgpack_pack_true(&packer) : msgpack_pack_false(&packer);
        break;
    case Type::number:
        msgpack_pack_uint32(&packer, static_cast<std::uint32_t>(record.number));
        break;
    case Type::longNumber:
        msgpack_pack_uint64(&packer, record.number);
        break;
    case Type::text:
        msgpack_pack_str_with_body(&packer, record.bytes.c_str(),
                                   std::strlen(record.bytes.c_str()));
        break;
    case Type::binary:
        msgpack_pack_bin_with_body(&packer, record.bytes.data(), record.bytes.size());
        break;
    }
}

void buildMif32(benchmark::State& state) {
    for (auto iteration : state) {
        Mif32 mif;
        for (const Record& record : records) {
            add(mif, record);
        }
        benchmark::DoNotOptimize(mif.GetData());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}

void buildMsgpack(benchmark::State& state) {
    for (auto iteration : state) {
        msgpack_sbuffer buffer;
        msgpack_sbuffer_init(&buffer);
        msgpack_packer packer;
        msgpack_packer_init(&packer, &buffer, msgpack_sbuffer_write);
        msgpack_pack_map(&packer, records.size());
        for (const Record& record : records) {
            pack(packer, record);
        }
        benchmark::DoNotOptimize(buffer.data);
        benchmark::ClobberMemory();
        msgpack_sbuffer_destroy(&buffer);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}

BENCHMARK(buildMif32);
BENCHMARK(buildMsgpack);

} // namespace

BENCHMARK_MAIN();
