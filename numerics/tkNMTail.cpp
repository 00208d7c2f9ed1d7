#include "numerics/tkNMTail.h"

#include "foundation/tkAssert.h"
#include "numerics/tkNMElementary.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{
constexpr double lnTwoPi = 1.8378770664093454836;
constexpr double infinity = std::numeric_limits<double>::infinity();

double ln(double x)
{
    return tkNMElementary::log(x);
}

/// ln(1 + y) for y > -1, also where 1 + y rounds to 1: the error of the sum cancels in y / (sum - 1).
double lnOfOnePlus(double y)
{
    const double sum = 1.0 + y;
    return sum == 1.0 ? y : ln(sum) * (y / (sum - 1.0));
}

/// ln(1 - e^l) for l <= 0.
double lnOfComplement(double l)
{
    return lnOfOnePlus(-tkNMElementary::exp(l));
}

/// What Stirling's formula leaves of ln Gamma(z), z > 0:
///     ln Gamma(z) = (z - 1/2) ln z - z + 1/2 ln 2 pi + remainder,   remainder = 1 / (12 z) - 1 / (360 z³) + ...
/// From 16 on the first term left out is below 3e-20. Smaller z are shifted by Gamma(z + 1) = z Gamma(z).
double stirlingRemainder(double z)
{
    double product = 1.0;
    double x = z;
    while (x < 16.0)
    {
        product *= x;
        x += 1.0;
    }
    const double r = 1.0 / (x * x);
    const double series =
        (1.0 / 12.0 +
         r * (-1.0 / 360.0 + r * (1.0 / 1260.0 + r * (-1.0 / 1680.0 + r * (1.0 / 1188.0 + r * (-691.0 / 360360.0 +
                                                                                               r * (1.0 / 156.0))))))) /
        x;
    return x == z ? series : series + ((x - 0.5) * ln(x) - x) - ln(product) - ((z - 0.5) * ln(z) - z);
}

/// ln(h^m e^-h / m!), h > 0.
double lnPoissonTerm(double h, double m)
{
    return (m - h) + m * ln(h / m) - 0.5 * (lnTwoPi + ln(m)) - stirlingRemainder(m);
}

/// ln(w^b v^a / B(a, b)).
double lnBetaTerm(double w, double v, double b, double a)
{
    const double sum = a + b;
    return b * ln(w * (sum / b)) + a * ln(v * (sum / a)) + 0.5 * (ln(a) + ln(b / sum) - lnTwoPi) +
           (stirlingRemainder(sum) - stirlingRemainder(a) - stirlingRemainder(b));
}

/// The continued fraction 1 / (1 + c_1 / (1 + c_2 / (1 + ...))) of I_w(b, a) b B(a, b) / (w^b v^a), with
///     c_2m = m (a - m) w / ((b + 2m - 1) (b + 2m)),   c_2m+1 = -(b + m) (a + b + m) w / ((b + 2m) (b + 2m + 1))
/// (Abramowitz and Stegun, Handbook of Mathematical Functions, 26.5.8), from the front by the method of Lentz
/// (Applied Optics 15, 1976, 668-671). It converges fast for w <= (b + 1) / (a + b + 2).
double betaFraction(double w, double b, double a)
{
    constexpr double tiny = 0x1p-1000;
    constexpr double precision = std::numeric_limits<double>::epsilon();
    constexpr long mostSteps = 1000000; // about the square root of the largest degrees that make sense
    const auto orTiny = [](double x) { return std::fabs(x) < tiny ? tiny : x; };
    double up = 1.0;
    double down = 1.0 / orTiny(1.0 - (a + b) / (b + 1.0) * w);
    double fraction = down;
    for (long step = 1; step < mostSteps; ++step)
    {
        const auto m = static_cast<double>(step);
        const double even = m / (b + 2.0 * m - 1.0) * ((a - m) / (b + 2.0 * m)) * w;
        down = 1.0 / orTiny(1.0 + even * down);
        up = orTiny(1.0 + even / up);
        fraction *= up * down;
        const double odd = -((b + m) / (b + 2.0 * m)) * ((a + b + m) / (b + 2.0 * m + 1.0)) * w;
        down = 1.0 / orTiny(1.0 + odd * down);
        up = orTiny(1.0 + odd / up);
        const double factor = up * down;
        fraction *= factor;
        if (std::fabs(factor - 1.0) <= precision)
            break;
    }
    return fraction;
}
} // namespace

double tkNMTail::lnF(double x, double numerator, double denominator)
{
    TK_ASSERT(x >= 0.0 && numerator > 0.0 && denominator > 0.0);
    const double t = numerator / denominator * x;
    const double w = 1.0 / (1.0 + t);
    const double v = t < 1.0 ? t / (1.0 + t) : 1.0 / (1.0 + 1.0 / t);
    return lnIncompleteBeta(w, v, 0.5 * denominator, 0.5 * numerator);
}

double tkNMTail::lnChiSquared(double h, long m)
{
    TK_ASSERT(h >= 0.0 && m >= 1);
    if (h == 0.0 || h == infinity || m == 1)
        return -h;
    const auto n = static_cast<double>(m);
    double term = 1.0;
    double sum = 1.0;
    if (h < n)
    {
        // The lower tail: h^m e^-h / m! (1 + h / (m + 1) + h² / ((m + 1) (m + 2)) + ...).
        for (double j = n + 1.0; term > 0x1p-60 * sum; j += 1.0)
            sum += term *= h / j;
        return lnOfComplement(std::min(0.0, lnPoissonTerm(h, n) + ln(sum)));
    }
    // The upper one: h^(m-1) e^-h / (m - 1)! (1 + (m - 1) / h + (m - 1) (m - 2) / h² + ...).
    for (double j = n - 1.0; j > 0.0 && term > 0x1p-60 * sum; j -= 1.0)
        sum += term *= j / h;
    return std::min(0.0, lnPoissonTerm(h, n) + ln(n / h * sum));
}

double tkNMTail::lnBinomial(long k, long n, double p)
{
    TK_ASSERT(n >= 0 && p > 0.0 && p < 1.0);
    if (k <= 0 || k > n)
        return k <= 0 ? 0.0 : -infinity;
    return lnIncompleteBeta(p, 1.0 - p, static_cast<double>(k), static_cast<double>(n - k) + 1.0);
}

double tkNMTail::lnIncompleteBeta(double w, double v, double b, double a)
{
    TK_ASSERT(w >= 0.0 && w <= 1.0 && a > 0.0 && b > 0.0);
    if (w <= 0.0 || v <= 0.0)
        return w <= 0.0 ? -infinity : 0.0;
    if (w <= (b + 1.0) / (a + b + 2.0))
        return std::min(0.0, lnBetaTerm(w, v, b, a) - ln(b) + ln(betaFraction(w, b, a)));
    return lnOfComplement(std::min(0.0, lnBetaTerm(v, w, a, b) - ln(a) + ln(betaFraction(v, a, b))));
}
