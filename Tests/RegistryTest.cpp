// The exported registry, read as a host reads it: by symbol and by raw offset.

#include "Support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

struct Row {
    const char *name;
    const char *yuv;
    const char *rgb;
    const char *guid;
};

constexpr Row kRows[] = {
    {"Erase", "TrErase", "TrEraseRGB", "667A322D-7351-44fd-AACC-17B0F766DA5F"},
    {"Erase_slide", "TrEraseSlide", "TrEraseSlideRGB", "4CA4EF88-5997-41a6-AAE6-0C2226D5A96E"},
    {"Bar", "TrBar", "TrBarRGB", "B41CF7F3-E39A-40e9-AE28-F21292EDDD03"},
    {"Drop", "TrDrop", "TrDropRGB", "136D4AD9-F8E6-44ef-8485-730F0F269FFD"},
    {"Blind", "TrBlind", "TrBlindRGB", "95F00574-529C-485e-87F4-970AD90419E9"},
    {"Turn", "TrTurn", "TrTurnRGB", "1B033EDA-6869-4957-AF60-323B09FB49FC"},
    {"Roll", "TrRoll", "TrRollRGB", "026C7976-00C0-4a05-A27A-E8D3372C06E7"},
    {"Roll_right_top", "roll_RT", "roll_RT_RGB", "1B3AF7D9-695E-4af0-9DC6-A8CFEE464DF8"},
    {"Wind", "TrWind", "TrWindRGB", "7E154FAA-91D3-4002-AEDD-9EBA2201711E"},
    {"MoveRect_1", "TrRect", "TrRectRGB", "F47CBE2C-CE60-40b9-B962-CABF3175E488"},
    {"MoveRect_2", "TrRect3", "TrRect3RGB", "48DE56F4-D272-45b0-99AA-8F359C7FA3A7"},
    {"Linear Wipe", "TrLinearWipe", "TrLinearWipeRGB", "FD4A4891-4E1C-4e05-B290-8195CC55E8C5"},
    {"Push", "TrPush", "TrPushRGB", "925C36FB-9EE1-4fca-899F-549D8328F2DC"},
    {"Flash", "TrFlash", "TrFlashRGB", "BF94B014-EFD7-4303-8243-76C0A29B20E7"},
    {"DoorWay", "TrDoorWay", "TrDoorWayRGB", "976B2502-3B22-4dd4-AEB4-0AAA2C1E5AC8"},
    {"CrossZoom", "TrCrossZoom", "TrCrossZoomRGB", "A679E80D-8647-4028-A366-6BFFEE34715A"},
};

template<class T>
T At(const unsigned char *record, std::size_t offset) {
    T value;
    std::memcpy(&value, record + offset, sizeof value);
    return value;
}

/// A 4-byte-character string in a field of this many characters, which must be zero-filled.
std::string WideText(const unsigned char *field, std::size_t characters) {
    std::string text;
    std::size_t i = 0;
    for (; i < characters && At<std::uint32_t>(field, i * 4); ++i)
        text += static_cast<char>(At<std::uint32_t>(field, i * 4));
    EXPECT_LT(i, characters) << "no terminator";
    for (; i < characters; ++i)
        EXPECT_EQ(At<std::uint32_t>(field, i * 4), 0U);
    return text;
}

template<class Function>
Function Symbol(const std::string &name) {
    return reinterpret_cast<Function>(TestedPlugin().Symbol(name.c_str()));
}

TEST(Registry, HoldsTheSixteenRecordsAtTheirOffsets) {
    const auto *table = Symbol<const unsigned char *>("g_arTransInfo");
    const auto info = Symbol<const unsigned char *(*)(int)>("GetTransInfo");
    ASSERT_TRUE(table && info);
    for (std::size_t i = 0; i < std::size(kRows); ++i) {
        const Row &row = kRows[i];
        SCOPED_TRACE(row.name);
        const unsigned char *record = table + i * 2848;
        EXPECT_EQ(info(static_cast<int>(i)), record);
        EXPECT_EQ(At<std::uint32_t>(record, 0), 2U);
        EXPECT_EQ(WideText(record + 4, 64), row.name);
        EXPECT_EQ(At<std::uint32_t>(record, 260), 0U);
        EXPECT_EQ(WideText(record + 280, 37), row.guid);
        for (std::size_t offset = 428; offset < 2848; ++offset)
            ASSERT_EQ(record[offset], 0) << "byte " << offset;
        EXPECT_TRUE(At<void *>(record, 264));
        EXPECT_TRUE(At<void *>(record, 272));
        EXPECT_EQ(At<void *>(record, 264), Symbol<void *>(hostkit::MangledYUV(row.yuv)));
        EXPECT_EQ(At<void *>(record, 272), Symbol<void *>(hostkit::MangledRGB(row.rgb)));
    }
}

TEST(Registry, Answers) {
    const auto type = Symbol<const char *(*)()>("GetTransType");
    const auto count = Symbol<int (*)()>("GetTransCount");
    const auto info = Symbol<const void *(*)(int)>("GetTransInfo");
    ASSERT_TRUE(type && count && info);
    EXPECT_STREQ(type(), "erase type");
    EXPECT_EQ(type(), type());
    EXPECT_EQ(count(), 16);
    for (const int index : {16, 17, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(info(index), nullptr) << index;
}

} // namespace
