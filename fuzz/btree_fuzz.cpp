// Turns bytes into operations on two maps, with refused allocations among them.

#include "qv_btree.cpp"

#include "checked_map.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        CheckedMap maps[2];
        for (; size >= 3; data += 3, size -= 3) {
            CheckedMap& map = maps[data[0] & 1];
            const Int key = data[1] | (data[2] & 3) << 8;
            const Int value = data[2] >> 2;
            const int operation = data[0] >> 4;
            fail_in = data[0] >> 1 & 7;
            if (operation < 6) {
                map.store(key, value, operation < 3);
            } else if (operation < 12) {
                map.remove(key, data[0] % 3);
            } else if (operation < 14) {
                map.look_up(key);
            } else if (value < 8) {
                const auto take = (value & 2) != 0 ? &CheckedMap::become_copy : &CheckedMap::assign;
                (map.*take)(maps[value & 1], (value & 4) != 0 ? key_copy : nullptr,
                            (key & 1) != 0 ? value_copy : nullptr);
            } else if (value < 10) {
                map.clear();
            } else if (value < 20) {
                map.remove_until(key);
            }
            fail_in = 0;
        }
    }
    require(live_blocks.empty(), "memory is left");
    return 0;
}
