// The registry: the one list of the registered transitions.

#include "tp_Erase.h"
#include "Registry.h"

#include <iterator>

const wchar_t tp::kRegistrySource[] = L"" __FILE__;

TransInfo g_arTransInfo[] = {
    {2, L"Erase", TrErase, TrEraseRGB, L"667A322D-7351-44fd-AACC-17B0F766DA5F", {}},
    {2, L"Erase_slide", TrEraseSlide, TrEraseSlideRGB, L"4CA4EF88-5997-41a6-AAE6-0C2226D5A96E", {}},
    {2, L"Bar", TrBar, TrBarRGB, L"B41CF7F3-E39A-40e9-AE28-F21292EDDD03", {}},
    {2, L"Drop", TrDrop, TrDropRGB, L"136D4AD9-F8E6-44ef-8485-730F0F269FFD", {}},
    {2, L"Blind", TrBlind, TrBlindRGB, L"95F00574-529C-485e-87F4-970AD90419E9", {}},
    {2, L"Turn", TrTurn, TrTurnRGB, L"1B033EDA-6869-4957-AF60-323B09FB49FC", {}},
    {2, L"Roll", TrRoll, TrRollRGB, L"026C7976-00C0-4a05-A27A-E8D3372C06E7", {}},
    {2, L"Roll_right_top", roll_RT, roll_RT_RGB, L"1B3AF7D9-695E-4af0-9DC6-A8CFEE464DF8", {}},
    {2, L"Wind", TrWind, TrWindRGB, L"7E154FAA-91D3-4002-AEDD-9EBA2201711E", {}},
    {2, L"MoveRect_1", TrRect, TrRectRGB, L"F47CBE2C-CE60-40b9-B962-CABF3175E488", {}},
    {2, L"MoveRect_2", TrRect3, TrRect3RGB, L"48DE56F4-D272-45b0-99AA-8F359C7FA3A7", {}},
    {2, L"Linear Wipe", TrLinearWipe, TrLinearWipeRGB, L"FD4A4891-4E1C-4e05-B290-8195CC55E8C5", {}},
    {2, L"Push", TrPush, TrPushRGB, L"925C36FB-9EE1-4fca-899F-549D8328F2DC", {}},
    {2, L"Flash", TrFlash, TrFlashRGB, L"BF94B014-EFD7-4303-8243-76C0A29B20E7", {}},
    {2, L"DoorWay", TrDoorWay, TrDoorWayRGB, L"976B2502-3B22-4dd4-AEB4-0AAA2C1E5AC8", {}},
    {2, L"CrossZoom", TrCrossZoom, TrCrossZoomRGB, L"A679E80D-8647-4028-A366-6BFFEE34715A", {}},
};

const char *GetTransType() {
    return "erase type";
}

std::int32_t GetTransCount() {
    return std::size(g_arTransInfo);
}

const TransInfo *GetTransInfo(std::int32_t index) {
    return index >= 0 && index < GetTransCount() ? &g_arTransInfo[index] : nullptr;
}
