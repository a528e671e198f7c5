#include "oui/oui_table.h"

#include <algorithm>

std::array<vvlan_oui_oper, VVLAN_OUI_MAX> g_vvlan_oui_table{};

vvlan_oui_oper oui_oper_decode(const uint8_t *bytes) {
    vvlan_oui_oper rec{};
    std::copy_n(bytes, rec.mac.size(), rec.mac.begin());
    std::copy_n(bytes + 6, rec.mask.size(), rec.mask.begin());
    rec.enable = bytes[12];
    std::copy_n(bytes + 13, rec.extra.size(), rec.extra.begin());
    return rec;
}

void oui_oper_encode(const vvlan_oui_oper &rec, uint8_t *out) {
    std::copy(rec.mac.begin(), rec.mac.end(), out);
    std::copy(rec.mask.begin(), rec.mask.end(), out + 6);
    out[12] = rec.enable;
    std::copy(rec.extra.begin(), rec.extra.end(), out + 13);
}
