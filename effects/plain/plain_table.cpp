#include <vector>

#include "effects/plain/plain_forms.h"
#include "effects/plain/plain_rows.h"

namespace {

struct Replacement {
    RowFunction fast1, fast2, plain;
};
const Replacement kReplacements[] = {
    {MotionBlurLine1, MotionBlurLine2, PlainMotionBlur}, {CenterBlurLine1, CenterBlurLine2, PlainCenterBlur},
    {RadialBlurLine1, RadialBlurLine2, PlainRadialBlur}, {ShakeLine1, ShakeLine2, PlainShake},
    {CharcoalLine1, CharcoalLine2, PlainCharcoal},       {DarkStrokesLine1, DarkStrokesLine2, PlainDarkStrokes},
    {FrescoLine1, FrescoLine2, PlainFresco},             {StampLine1, StampLine2, PlainStamp},
    {FindEdgesLine1, FindEdgesLine2, PlainFindEdges},    {ContoursLine1, ContoursLine2, PlainContours},
};

}  // namespace

// The production table with each fast row function pair replaced by its plain form.
const EffectTable& plainEffectTable() {
    static const std::vector<EffectRecord> records = [] {
        std::vector<EffectRecord> r(kEffectTable.records, kEffectTable.records + kEffectTable.count + 1);
        for (EffectRecord& record : r)
            for (const Replacement& k : kReplacements)
                if (record.line1 == k.fast1 && record.line2 == k.fast2) record.line1 = record.line2 = k.plain;
        return r;
    }();
    static const EffectTable table{records.data(), kEffectTable.count};
    return table;
}
