#include <vector>

#include "effects/plain/plain_forms.h"

const EffectTable& plainEffectTable() {
    static const std::vector<EffectRecord> records = [] {
        std::vector<EffectRecord> r(kEffectTable.records, kEffectTable.records + kEffectTable.count + 1);
        return r;
    }();
    static const EffectTable table{records.data(), kEffectTable.count};
    return table;
}
