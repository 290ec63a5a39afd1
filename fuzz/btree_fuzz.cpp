// Turns bytes into operations on two maps, each checked against std::map. An operation takes three
// bytes:
//
//   first   bit 0       the map
//           bits 1-3    n: the n-th allocation from here on is refused; 0: none is
//           bits 4-7    0-2 replace, 3-5 insert, 6-11 remove, 12-13 look up, 14-15 others: see
//           below
//   second              bits 0-7 of the key
//   third   bits 0-1    bits 8-9 of the key
//           bits 2-7    the value
//
// A removal goes by node, key or another comparator: the first byte modulo 3. The others are told
// by the value: 0-7 copy or assign (bit 0 source, bit 1 copy, bit 2 and bit 0 of the key: with a
// copy function for keys, for values), 8-9 clear, 10-19 remove until the key; more do nothing.

#include "qv_btree.cpp"

#include "checked_map.h"

namespace {

void operate(CheckedMap (&maps)[2], const uint8_t* data) {
    CheckedMap& map = maps[data[0] & 1];
    const Int key = data[1] | (data[2] & 3) << 8;
    const Int value = data[2] >> 2;
    const int operation = data[0] >> 4;
    refuse_in = data[0] >> 1 & 7;
    if (operation < 3) {
        map.replace(key, value);
    } else if (operation < 6) {
        map.insert(key, value);
    } else if (operation < 12) {
        map.remove(key, static_cast<RemoveBy>(data[0] % 3));
    } else if (operation < 14) {
        map.look_up(key);
    } else if (value < 8) {
        const auto take = (value & 2) != 0 ? &CheckedMap::copy : &CheckedMap::assign;
        (map.*take)(maps[value & 1], (value & 4) != 0 ? key_copy : nullptr,
                    (key & 1) != 0 ? value_copy : nullptr);
    } else if (value < 10) {
        map.clear();
    } else if (value < 20) {
        map.remove_until(key);
    }
    refuse_in = 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        CheckedMap maps[2];
        for (size_t at = 0; at + 3 <= size; at += 3) {
            try {
                operate(maps, data + at);
            } catch (const std::logic_error& error) {
                throw std::logic_error("operation " + std::to_string(at / 3 + 1) + ", on map " +
                                       std::to_string(data[at] & 1) + ": " + error.what());
            }
        }
    }
    require(live_blocks.empty(), "memory is left");
    return 0;
}
