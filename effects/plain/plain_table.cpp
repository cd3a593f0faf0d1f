#include <vector>

#include "effects/plain/plain_forms.h"

// The production table with each effect's fast row functions replaced by its plain form.
const EffectTable& plainEffectTable() {
    static const std::vector<EffectRecord> records = [] {
        std::vector<EffectRecord> r(kEffectTable.records, kEffectTable.records + kEffectTable.count + 1);
        for (EffectRecord& record : r)
            if (record.plain) {
                record.line1 = record.line2 = record.plain;
                record.rowPart = nullptr;   // the plain rows run in order
            }
        return r;
    }();
    static const EffectTable table{records.data(), kEffectTable.count};
    return table;
}
