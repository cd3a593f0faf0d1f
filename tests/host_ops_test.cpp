// The picture mix the Linux front ends provide: the pairs it refuses. (Its
// results, and the colour operations, are checked by the conformance check.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostops/colour_ops_plain.h"
#include "hostops/threads.h"
#include "tests/picture_support.h"

using namespace testpic;

// Pictures of other sizes or of other depths, and an 8-bit second picture, are
// refused as bad pictures rather than read past their rows.
TEST(PictureMix, RefusesPicturesThatDoNotMatch) {
    const auto table = palette256();
    const struct {
        const char* what;
        int firstWidth, firstHeight, firstBits, secondWidth, secondHeight, secondBits;
    } pairs[] = {
        {"narrower first", 2, 2, 24, 3, 2, 24},
        {"shorter first", 3, 1, 24, 3, 2, 24},
        {"32-bit first, 24-bit second", 3, 2, 32, 3, 2, 24},
        {"24-bit first, 32-bit second", 3, 2, 24, 3, 2, 32},
        {"8-bit second", 3, 2, 24, 3, 2, 8},
    };
    for (const auto& p : pairs) {
        Owned first(make(p.firstWidth, p.firstHeight, p.firstBits, pattern, table));
        Owned second(make(p.secondWidth, p.secondHeight, p.secondBits, pattern, table));
        for (std::uint32_t weight : {0u, 8192u, 16384u}) {
            EXPECT_EQ(hostops::mix(first, second, weight), nullptr) << p.what << ", weight " << weight;
            EXPECT_EQ(hostops::lastFailure(), hostops::Failure::BadPicture) << p.what;
        }
    }
    // The same pictures in a matching pair are mixed.
    Owned first(make(3, 2, 8, pattern, table)), second(make(3, 2, 24, pattern));
    Owned mixed(hostops::mix(first, second, 8192));
    EXPECT_NE(mixed.h, nullptr);
    EXPECT_EQ(hostops::lastFailure(), hostops::Failure::None);
}

// The colour operations chained from view to view give what the plain picture
// forms give one after another: for chains with and without a leading
// Simplify, for 8-, 24- and 32-bit sources (alpha 0, 255 and in between, kept
// in the output), odd sizes and pictures taller than a band, bottom-up and
// top-down views with padded rows, on one thread and in bands on three. No
// byte outside a row's pixels is written.
TEST(ColourChain, MatchesThePlainPictureFormsOneAfterAnother) {
    using flairize::ColourOp;
    const std::vector<std::vector<ColourOp>> chains = {
        {ColourOp::Smooth, ColourOp::Simplify, ColourOp::Smooth, ColourOp::Simplify},   // WaterColor
        {ColourOp::Soften},
        {ColourOp::Smooth},
        {ColourOp::Simplify},
        {ColourOp::Simplify, ColourOp::Soften, ColourOp::Simplify, ColourOp::Simplify},
        {ColourOp::Soften, ColourOp::Smooth, ColourOp::Soften},
    };
    const struct {
        int width, height;
    } sizes[] = {{1, 1}, {2, 1}, {1, 7}, {5, 3}, {37, 23}, {13, 70}};
    const auto table = palette256();
    // Alphas: a run of 0, a run of 255 and varied values between.
    const auto source = [](int x, int y) {
        Bgra c = pattern(x, y);
        c.a = x % 7 == 0 ? 0 : (y % 5 == 0 ? 255 : c.a);
        return c;
    };
    const flairize::HostServices plain = hostops::plainServices();
    const flairize::HostServices threaded = hostops::threadedServices(3);
    for (const auto& z : sizes)
        for (int bits : {8, 24, 32}) {
            Owned picture(make(z.width, z.height, bits, source, table));
            for (const auto& chain : chains) {
                // The plain forms, one picture after another.
                Owned expected;
                for (const ColourOp op : chain) {
                    auto form = op == ColourOp::Smooth ? plain.smooth : op == ColourOp::Simplify ? plain.simplify : plain.soften;
                    HGLOBAL next = form(nullptr, expected.h ? expected.h : picture.h);
                    ASSERT_NE(next, nullptr);
                    plat::globalFree(expected.h);
                    expected.h = next;
                }
                const View want(expected);
                const dib::Source src(picture);
                const int outBytes = bits == 32 ? 4 : 3;
                const std::size_t rowBytes = std::size_t(z.width) * unsigned(outBytes), stride = rowBytes + 5;
                for (bool topDown : {false, true})
                    for (bool inBands : {false, true}) {
                        // The source as a view in its picture or turned over into a top-down frame.
                        std::vector<std::uint8_t> flipped;
                        dib::View in = src.view();
                        if (topDown && bits != 8) {
                            const std::size_t inBytes = std::size_t(z.width) * unsigned(bits / 8);
                            flipped.resize(inBytes * std::size_t(z.height));
                            for (int y = 0; y < z.height; ++y)
                                std::memcpy(&flipped[inBytes * std::size_t(z.height - 1 - y)], src.row(std::uint32_t(y)), inBytes);
                            in.bottom = flipped.data() + inBytes * std::size_t(z.height - 1);
                            in.step = -std::ptrdiff_t(inBytes);
                            in.picture = nullptr;
                        }
                        std::vector<std::uint8_t> frame(stride * std::size_t(z.height), 0xA5);
                        dib::View out;
                        out.bottom = topDown ? frame.data() + stride * std::size_t(z.height - 1) : frame.data();
                        out.step = topDown ? -std::ptrdiff_t(stride) : std::ptrdiff_t(stride);
                        out.width = std::uint16_t(z.width), out.height = std::uint16_t(z.height);
                        out.bitCount = std::uint16_t(8 * outBytes);
                        const auto& host = inBands ? threaded : hostops::services();
                        const std::string what = std::to_string(z.width) + "x" + std::to_string(z.height) + ", " +
                                                 std::to_string(bits) + " bits, chain of " +
                                                 std::to_string(chain.size()) + (topDown ? ", top-down" : "") +
                                                 (inBands ? ", in bands" : "");
                        ASSERT_TRUE(host.colourChain(host.user, chain.data(), unsigned(chain.size()), in, out)) << what;
                        for (int y = 0; y < z.height; ++y) {
                            const std::uint8_t* got = out.row(std::uint32_t(y));
                            ASSERT_EQ(std::memcmp(got, want.row(y), rowBytes), 0) << what << ", row " << y;
                            for (std::size_t i = rowBytes; i < stride; ++i) ASSERT_EQ(got[i], 0xA5) << what;
                        }
                    }
            }
        }
}

// Views that do not match are refused, and so is a chain too long for its stages.
TEST(ColourChain, RefusesViewsThatDoNotFit) {
    using flairize::ColourOp;
    Owned picture(make(4, 3, 32, pattern));
    const dib::Source src(picture);
    std::vector<std::uint8_t> frame(4 * 4 * 3);
    dib::View out;
    out.bottom = frame.data(), out.step = 16, out.width = 4, out.height = 3, out.bitCount = 32;
    const ColourOp smooth = ColourOp::Smooth;
    EXPECT_TRUE(hostops::colourChain(&smooth, 1, src.view(), out));
    dib::View narrower = out;
    narrower.width = 3;
    EXPECT_FALSE(hostops::colourChain(&smooth, 1, src.view(), narrower));
    dib::View shallower = out;
    shallower.bitCount = 24;
    EXPECT_FALSE(hostops::colourChain(&smooth, 1, src.view(), shallower));
    const std::vector<ColourOp> long_(9, ColourOp::Soften);
    EXPECT_FALSE(hostops::colourChain(long_.data(), unsigned(long_.size()), src.view(), out));
}
