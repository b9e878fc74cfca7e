// Libraries that look more or less like a plug-in: FAKE_GOOD, or what each other one lacks.

#include "tp_Erase.h"

namespace {

#ifdef FAKE_LAYOUT
// As a host whose wide characters have two bytes would lay it out.
struct Record {
    std::uint32_t nType = 2;
    char16_t szName[64] = u"Melt";
    void *functions[2] = {};
    char16_t szGUID[37] = u"0F";
    unsigned char reserved[4000] = {};
};
Record records[3];
#else
void Packed(void *, void *, void *, const TransParam *) {}
#ifdef FAKE_KIND
constexpr std::uint32_t kType = 3;
#else
constexpr std::uint32_t kType = 2;
#endif
[[maybe_unused]] TransInfo records[] = {{kType, L"Melt\u00e9", nullptr, Packed, L"0F", {}},
                                        {kType, L"MELT?", nullptr, nullptr, L"", {}}};
#endif

} // namespace

#ifdef FAKE_GOOD
TP_ERASE_API void TrCirque(YUVImage *, const YUVImage *, const YUVImage *, const TransParam *) {}
#endif

extern "C" {
TP_ERASE_API const char *GetTransType() {
    return "fake";
}
TP_ERASE_API std::int32_t GetTransCount() {
#ifdef FAKE_GAP
    return 3;
#else
    return 2;
#endif
}
#ifndef FAKE_HALF
TP_ERASE_API const TransInfo *GetTransInfo(std::int32_t index) {
    return index < 2 ? reinterpret_cast<const TransInfo *>(&records[index]) : nullptr;
}
#endif
}
