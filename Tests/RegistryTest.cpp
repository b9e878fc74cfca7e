// The exported registry, read as a host reads it: by symbol. The header asserts the offsets.

#include "Support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <string>

namespace {

/// What hosts have stored by index, name or GUID stays; new records follow.
constexpr struct {
    const char *name, *guid;
} kKnown[] = {
    {"Erase", "667A322D-7351-44fd-AACC-17B0F766DA5F"},
    {"Erase_slide", "4CA4EF88-5997-41a6-AAE6-0C2226D5A96E"},
    {"Bar", "B41CF7F3-E39A-40e9-AE28-F21292EDDD03"},
    {"Drop", "136D4AD9-F8E6-44ef-8485-730F0F269FFD"},
    {"Blind", "95F00574-529C-485e-87F4-970AD90419E9"},
    {"Turn", "1B033EDA-6869-4957-AF60-323B09FB49FC"},
    {"Roll", "026C7976-00C0-4a05-A27A-E8D3372C06E7"},
    {"Roll_right_top", "1B3AF7D9-695E-4af0-9DC6-A8CFEE464DF8"},
    {"Wind", "7E154FAA-91D3-4002-AEDD-9EBA2201711E"},
    {"MoveRect_1", "F47CBE2C-CE60-40b9-B962-CABF3175E488"},
    {"MoveRect_2", "48DE56F4-D272-45b0-99AA-8F359C7FA3A7"},
    {"Linear Wipe", "FD4A4891-4E1C-4e05-B290-8195CC55E8C5"},
    {"Push", "925C36FB-9EE1-4fca-899F-549D8328F2DC"},
    {"Flash", "BF94B014-EFD7-4303-8243-76C0A29B20E7"},
    {"DoorWay", "976B2502-3B22-4dd4-AEB4-0AAA2C1E5AC8"},
    {"CrossZoom", "A679E80D-8647-4028-A366-6BFFEE34715A"},
};

TEST(Registry, HoldsItsRecordsZeroFilled) {
    const auto symbol = [](const char *name) { return TestedPlugin().Symbol(name); };
    const auto *table = static_cast<const TransInfo *>(symbol("g_arTransInfo"));
    const auto count = reinterpret_cast<decltype(&GetTransCount)>(symbol("GetTransCount"));
    const auto info = reinterpret_cast<decltype(&GetTransInfo)>(symbol("GetTransInfo"));
    ASSERT_TRUE(table && info && count && count() >= int(std::size(kKnown)));
    std::set<std::string> guids;
    for (int i = 0; i < count(); ++i) {
        const hostkit::Transition &transition = TestedPlugin().Transitions()[i];
        SCOPED_TRACE(transition.name);
        TransInfo expected;
        std::memset(&expected, 0, sizeof expected);
        expected.nType = 2;
        expected.pfnTransYUV = transition.yuv;
        expected.pfnTransRGB = transition.rgb;
        std::ranges::copy(transition.name, expected.szName);
        std::ranges::copy(transition.guid, expected.szGUID);
        ASSERT_EQ(info(i), table + i);
        EXPECT_TRUE(RecordBytes(table[i]) == RecordBytes(expected));
        EXPECT_TRUE(transition.yuv && transition.rgb);
        EXPECT_EQ(transition.guid.size(), 36U);
        EXPECT_TRUE(guids.insert(transition.guid).second) << "two transitions have this GUID";
        if (i < int(std::size(kKnown))) {
            EXPECT_EQ(transition.name, kKnown[i].name);
            EXPECT_EQ(transition.guid, kKnown[i].guid);
        }
    }
    for (const int index : {count(), count() + 1, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(info(index), nullptr) << index;
    EXPECT_EQ(TestedPlugin().Category(), "erase type");
}

} // namespace
