#include "engine/curve_pow.h"

#include <cmath>
#include <limits>

namespace timing {
namespace {

// A double-double value: hi + lo with |lo| at most half an ulp of hi.
struct DD {
    double hi, lo;
};

DD twoSum(double a, double b) {
    const double s = a + b;
    const double bb = s - a;
    return {s, (a - (s - bb)) + (b - bb)};
}

DD quickTwoSum(double a, double b) {
    const double s = a + b;
    return {s, b - (s - a)};
}

// Dekker's exact product, without relying on fused multiply-add.
DD twoProd(double a, double b) {
    const double split = 134217729.0;  // 2^27 + 1
    const double p = a * b;
    const double ta = split * a, tb = split * b;
    const double ah = ta - (ta - a), al = a - ah;
    const double bh = tb - (tb - b), bl = b - bh;
    return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
}

DD add(DD a, DD b) {
    DD s = twoSum(a.hi, b.hi);
    const DD t = twoSum(a.lo, b.lo);
    s.lo += t.hi;
    s = quickTwoSum(s.hi, s.lo);
    s.lo += t.lo;
    return quickTwoSum(s.hi, s.lo);
}

DD mul(DD a, DD b) {
    DD p = twoProd(a.hi, b.hi);
    p.lo += a.hi * b.lo + a.lo * b.hi;
    return quickTwoSum(p.hi, p.lo);
}

DD mul(DD a, double b) {
    DD p = twoProd(a.hi, b);
    p.lo += a.lo * b;
    return quickTwoSum(p.hi, p.lo);
}

DD div(DD a, DD b) {
    const double q1 = a.hi / b.hi;
    const DD r = add(a, mul(b, -q1));
    const double q2 = r.hi / b.hi;
    const DD r2 = add(r, mul(b, -q2));
    const double q3 = r2.hi / b.hi;
    return add(quickTwoSum(q1, q2), DD{q3, 0.0});
}

const DD kLn2{0.6931471805599453, 2.3190468138462996e-17};

// Reciprocals 1/(2i+1) for the logarithm's series and 1/i! for the exponential's,
// each worked out once in double-double.
struct SeriesTables {
    DD oddReciprocal[24];
    DD factorialReciprocal[14];
    SeriesTables() {
        for (int i = 0; i < 24; ++i) oddReciprocal[i] = div(DD{1.0, 0.0}, DD{2.0 * i + 1.0, 0.0});
        factorialReciprocal[0] = DD{1.0, 0.0};
        for (int i = 1; i < 14; ++i) factorialReciprocal[i] = div(factorialReciprocal[i - 1], DD{double(i), 0.0});
    }
};
const SeriesTables& tables() {
    static const SeriesTables t;
    return t;
}

// Natural logarithm of x > 0: x = m * 2^k with m near 1, then
// log m = 2 atanh(s), s = (m - 1) / (m + 1), by its series in s^2.
DD logDD(double x) {
    int k = 0;
    double m = std::frexp(x, &k);  // exact: m in [0.5, 1)
    if (m < 0.70710678118654752) {
        m *= 2.0;
        --k;
    }
    const DD s = div(twoSum(m, -1.0), twoSum(m, 1.0));
    const DD s2 = mul(s, s);
    const SeriesTables& t = tables();
    DD sum = t.oddReciprocal[23];
    for (int i = 22; i >= 0; --i) sum = add(mul(sum, s2), t.oddReciprocal[i]);
    return add(mul(mul(sum, s), 2.0), mul(kLn2, static_cast<double>(k)));
}

// e^y: y = n ln 2 + r, e^r from its series at r / 1024, squared ten times.
DD expDD(DD y) {
    const double n = std::nearbyint(y.hi / kLn2.hi);
    DD r = add(y, mul(kLn2, -n));
    r = DD{r.hi / 1024.0, r.lo / 1024.0};  // exact
    const SeriesTables& t = tables();
    DD sum = t.factorialReciprocal[13];
    for (int i = 12; i >= 0; --i) sum = add(mul(sum, r), t.factorialReciprocal[i]);
    for (int i = 0; i < 10; ++i) sum = mul(sum, sum);
    return DD{std::ldexp(sum.hi, static_cast<int>(n)), std::ldexp(sum.lo, static_cast<int>(n))};
}

}  // namespace

double curvePow(double x, double e) {
    if (x == 0.0) return e > 0.0 ? 0.0 : std::numeric_limits<double>::infinity();
    if (x == 1.0 || e == 0.0) return 1.0;
    const DD y = mul(logDD(x), e);
    if (y.hi > 709.0) return std::numeric_limits<double>::infinity();
    if (y.hi < -745.0) return 0.0;
    const DD v = expDD(y);
    return v.hi + v.lo;
}

}  // namespace timing
