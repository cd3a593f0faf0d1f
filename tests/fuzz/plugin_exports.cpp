// The plug-in's exports as the host calls them, with a host context and a
// source picture made from the input: the context's positions, speeds and slot
// damaged (its pointers stay the host's own), the picture a packed DIB with any
// header. GenerateDIB after SetupFrame or not, the five exported filters and
// the preview, sometimes with an allocation failing. Every block comes back.
#include "host/exports.h"
#include "platform/strings.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/standin_host.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    plat::setMessageSink([](const std::string&) {});   // no message on every failing run
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput in{data, size};
    SettingsRecord records[2];
    for (auto& r : records) r = in.take<SettingsRecord>();
    unsigned char inputRecord[48];
    for (auto& b : inputRecord) b = in.take<std::uint8_t>();
    const std::uint8_t call = in.take<std::uint8_t>();
    const long failAt = in.take<std::uint8_t>() % 10;   // 0: no failure
    TestHostContext context(&records[0], nullptr);
    std::size_t n = sizeof context.bytes;
    std::memcpy(context.bytes, in.bytes(n), n);
    context.setSlot(context.bytes[hostctx::kSlotOffset] & 1);   // slots 0 and 1 have records
    context.setRecord(0, &records[0]);
    context.setRecord(1, &records[1]);
    context.writeAt(hostctx::kInputRecordOffset, (call & 0x80) ? inputRecord : nullptr);
    const long live = plat::liveBlocks();
    context.source = fuzzPictureBlock(in);
    if (!context.source && (call & 0x40) == 0) return 0;   // too large; a missing picture now and then
    const SettingsRecord& r = records[context.bytes[hostctx::kSlotOffset]];

    HGLOBAL out = nullptr;
    HPALETTE palette = nullptr;
    plat::failAllocationAfter(failAt);
    switch (call % 9) {
    case 0: FUZZ_CHECK(GenerateDIB(&context, &out, 0) <= 1); break;
    case 1:
        SetupFrame(&context, 0);
        FUZZ_CHECK(GenerateDIB(&context, &out, 0) <= 1);
        break;
    case 2: out = FLR_LineFilter(r.effect, context.source, r.progress, r.param1, r.param2, r.param3); break;
    case 3: out = FLR_MeanMapFilter(r.effect, context.source, r.progress, r.param1, r.param2, r.param3); break;
    case 4: out = FLR_TextureFilter(r.effect, context.source, r.progress, r.param1, r.param2, r.param3); break;
    case 5: out = FLR_WaterColor(r.effect, context.source, r.progress, r.param1, r.param2, r.param3); break;
    case 6: out = FLR_Glass(r.effect, context.source, r.progress, r.param1, r.param2, r.param3); break;
    default: {
        const std::uint16_t sliders[3] = {r.param1, r.param2, r.param3};
        plugin::previewRender(r.effect, context.source, r, sliders, &out, &palette);
    }
    }
    plat::failAllocationAfter(0);
    plat::globalFree(out);
    plat::globalFree(context.source);
    FUZZ_CHECK(plat::liveBlocks() == live);
    return 0;
}
