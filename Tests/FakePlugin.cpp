// Libraries that look more or less like a plug-in: FAKE is Good, or what each other one lacks.

#include "tp_Erase.h"

namespace {

enum Fake { Good, Half, Gap, Layout, Kind };

void Packed(void *, void *, void *, const TransParam *) {}

constexpr std::uint32_t kType = FAKE == Kind ? 3 : 2;
[[maybe_unused]] TransInfo records[] = {{kType, L"Melt\u00e9", nullptr, Packed, L"0F", {}},
                                        {kType, L"MELT?", nullptr, nullptr, L"", {}}};

/// As a host whose wide characters have two bytes would lay it out.
[[maybe_unused]] struct {
    std::uint32_t nType = 2;
    char16_t szName[64] = u"Melt";
    void *functions[2] = {};
    char16_t szGUID[37] = u"0F";
    unsigned char reserved[4000] = {};
} narrow[3];

} // namespace

#ifdef FAKE_GOOD
TP_ERASE_API void TrCirque(YUVImage *, const YUVImage *, const YUVImage *, const TransParam *) {}
#endif

extern "C" {
TP_ERASE_API const char *GetTransType() {
    return "fake";
}
TP_ERASE_API std::int32_t GetTransCount() {
    return FAKE == Gap ? 3 : 2;
}
#ifndef FAKE_HALF
TP_ERASE_API const TransInfo *GetTransInfo(std::int32_t index) {
    if (FAKE == Layout)
        return reinterpret_cast<const TransInfo *>(&narrow[index]);
    return index < 2 ? &records[index] : nullptr;
}
#endif
}
