// Figures, table and SVG plot of a tuning run.
#include "tune_report.h"

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

namespace varn_tune {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// printf into a string: every number of the report is written through here
// with a fixed precision, so the same input gives the same bytes.
__attribute__((format(printf, 1, 2))) std::string fmt(const char* format, ...) {
    va_list args;
    va_list again;
    va_start(args, format);
    va_copy(again, args);
    const int n = vsnprintf(nullptr, 0, format, args);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) vsnprintf(&text[0], text.size() + 1, format, again);
    va_end(again);
    va_end(args);
    return text;
}

bool isScored(const Sample& s) { return s.succeeded && !std::isnan(s.true_m); }

template <typename Keep>
Figures figuresWhere(const std::vector<Sample>& samples, Keep keep) {
    Figures f;
    double sum = 0;
    double sum_sq = 0;
    std::vector<double> abs_err;
    for (const Sample& s : samples) {
        if (!keep(s)) continue;
        ++f.results;
        if (s.succeeded) ++f.succeeded;
        if (!isScored(s)) continue;
        const double err = s.measured_m - s.true_m;
        sum += err;
        sum_sq += err * err;
        abs_err.push_back(std::fabs(err));
    }
    f.scored = abs_err.size();
    if (f.scored == 0) {
        f.mean_m = f.rms_m = f.p95_abs_m = kNaN;
        return f;
    }
    const double n = static_cast<double>(f.scored);
    f.mean_m = sum / n;
    f.rms_m = std::sqrt(sum_sq / n);
    f.p95_abs_m = percentile(std::move(abs_err), 95);
    return f;
}

// "-" stands for a figure with no scored sample behind it.
std::string number(const char* format, double v) { return std::isnan(v) ? "-" : fmt(format, v); }

// ---- SVG ----

constexpr double kWidth = 960;
constexpr double kRight = 24;        // margin right of the plots
constexpr double kPlotHeight = 270;  // of each panel
constexpr double kCharPx = 7;        // generous width of a 12 px character
const char* const kAxisColour = "#333";
const char* const kGridColour = "#e4e4e4";
// Box fill and stroke: plain, best, default.
const char* const kFill[] = {"#dde4ec", "#a5d6a7", "#ffcc99"};
const char* const kStroke[] = {"#4a5a6a", "#2e7d32", "#d35400"};

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

// Values lo..hi drawn from pixel `from` to pixel `to` (to < from for a y axis).
struct Axis {
    double lo, hi, from, to;
    double px(double v) const { return from + (v - lo) / (hi - lo) * (to - from); }
    bool holds(double v) const { return v >= lo && v <= hi; }
};

// The range lo..hi widened to hold 0 and padded by `pad` of its span each side;
// never empty.
std::pair<double, double> paddedRange(double lo, double hi, double pad) {
    lo = std::min(lo, 0.0);
    hi = std::max(hi, 0.0);
    pad = hi > lo ? (hi - lo) * pad : 1;
    return {lo - pad, hi + pad};
}

void line(std::string& svg, double x1, double y1, double x2, double y2, const char* colour,
          double width = 1) {
    svg +=
            fmt("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" "
                "stroke-width=\"%.1f\"/>\n",
                x1, y1, x2, y2, colour, width);
}

void text(std::string& svg, double x, double y, const std::string& str, const char* attrs = "") {
    svg += fmt("<text x=\"%.1f\" y=\"%.1f\"%s>", x, y, attrs) + escaped(str) + "</text>\n";
}

void rect(std::string& svg, double x, double y, double w, double h, const char* fill,
          const char* stroke) {
    svg +=
            fmt("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"%s\" "
                "stroke=\"%s\"/>\n",
                x, y, w, h, fill, stroke);
}

// A value at (x, v) on `y`: a dot inside the range, a triangle pointing out at
// its edge when beyond it.
void point(std::string& svg, double x, double v, const Axis& y, const char* colour, double r) {
    if (y.holds(v)) {
        svg += fmt(
                "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\" fill=\"%s\" fill-opacity=\"0.7\"/>\n",
                x, y.px(v), r, colour);
        return;
    }
    const bool above = v > y.hi;
    const double edge = above ? y.to : y.from;
    const double base = edge + (above ? 7 : -7);
    svg += fmt("<polygon points=\"%.1f,%.1f %.1f,%.1f %.1f,%.1f\" fill=\"%s\"/>\n", x - 4, base,
               x + 4, base, x, edge, colour);
}

// About `target` ticks of `a` at a step of 1, 2 or 5 times a power of ten, with
// their labels.
std::vector<std::pair<double, std::string>> ticks(const Axis& a, double target) {
    const double raw = (a.hi - a.lo) / target;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    double step = 10 * power;
    for (double m : {5.0, 2.0, 1.0}) {
        if (m * power >= raw * (1 - 1e-9)) step = m * power;
    }
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    std::vector<std::pair<double, std::string>> out;
    for (double k = std::ceil(a.lo / step); k * step <= a.hi; ++k) {
        const double v = k == 0 ? 0 : k * step;  // never "-0"
        out.emplace_back(v, fmt("%.*f", decimals, v));
    }
    return out;
}

// Ticks, labels and light grid lines of `y` across x0..x1, a darker zero line.
void yAxis(std::string& svg, const Axis& y, double x0, double x1, const std::string& caption) {
    for (const auto& tick : ticks(y, 6)) {
        const double py = y.px(tick.first);
        line(svg, x0, py, x1, py, kGridColour);
        line(svg, x0 - 5, py, x0, py, kAxisColour);
        text(svg, x0 - 8, py + 4, tick.second, " text-anchor=\"end\"");
    }
    if (y.holds(0)) line(svg, x0, y.px(0), x1, y.px(0), "#888", 1.5);
    line(svg, x0, y.from, x0, y.to, kAxisColour);
    const double mid = (y.from + y.to) / 2;
    text(svg, 20, mid, caption,
         fmt(" text-anchor=\"middle\" transform=\"rotate(-90 20 %.1f)\"", mid).c_str());
}

void xAxis(std::string& svg, const Axis& x, double y0, const std::string& caption) {
    for (const auto& tick : ticks(x, 8)) {
        line(svg, x.px(tick.first), y0, x.px(tick.first), y0 + 5, kAxisColour);
        text(svg, x.px(tick.first), y0 + 18, tick.second, " text-anchor=\"middle\"");
    }
    line(svg, x.from, y0, x.to, y0, kAxisColour);
    text(svg, (x.from + x.to) / 2, y0 + 36, caption, " text-anchor=\"middle\"");
}

// Colour swatches and their names in a row from (x, y).
void legend(std::string& svg, double x, double y,
            const std::vector<std::pair<int, std::string>>& entries) {
    for (const auto& entry : entries) {
        rect(svg, x, y - 10, 12, 12, kFill[entry.first], kStroke[entry.first]);
        text(svg, x + 17, y, entry.second);
        x += 40 + static_cast<double>(entry.second.size()) * kCharPx;
    }
}

// The errors (measured - true) of the scored samples, with their truths.
std::vector<std::pair<double, double>> truthAndError(const std::vector<Sample>& samples) {
    std::vector<std::pair<double, double>> out;
    for (const Sample& s : samples) {
        if (isScored(s)) out.emplace_back(s.true_m, s.measured_m - s.true_m);
    }
    return out;
}

}  // namespace

std::string Setting::label() const {
    // Integer arithmetic keeps "-0.5" exact and is safe for INT_MIN.
    const long long tenths = stdev_mult;
    const long long magnitude = tenths < 0 ? -tenths : tenths;
    return fmt("mult %s%lld.%lld wmean %d bwmm %d", tenths < 0 ? "-" : "", magnitude / 10,
               magnitude % 10, weighted_mean, bw_mismatch);
}

std::string Setting::configLines() const {
    return fmt(
            "VARN_WIFIHAL_STDEV_MULT = %d\nVARN_RTT_WEIGHTED_MEAN = %d\n"
            "VARN_WIFIHAL_BW_MISMATCH = %d\n",
            stdev_mult, weighted_mean, bw_mismatch);
}

double percentile(std::vector<double> values, double p) {
    // NaN has no place in an order; sorting it would be undefined.
    values.erase(
            std::remove_if(values.begin(), values.end(), [](double v) { return std::isnan(v); }),
            values.end());
    if (values.empty() || std::isnan(p)) return kNaN;
    std::sort(values.begin(), values.end());
    const double pos = static_cast<double>(values.size() - 1) * std::clamp(p, 0.0, 100.0) / 100;
    const size_t lo = static_cast<size_t>(pos);
    const double frac = pos - static_cast<double>(lo);
    if (frac == 0) return values[lo];
    return values[lo] + frac * (values[lo + 1] - values[lo]);
}

Figures figuresOf(const std::vector<Sample>& samples, int bw_mhz) {
    return figuresWhere(samples,
                        [bw_mhz](const Sample& s) { return bw_mhz == 0 || s.bw_mhz == bw_mhz; });
}

size_t bestRun(const std::vector<SettingRun>& runs) {
    std::vector<Figures> figures;
    size_t most = 0;  // successes of the most successful run that scored
    for (const SettingRun& run : runs) {
        figures.push_back(figuresOf(run.samples));
        if (figures.back().scored > 0) most = std::max(most, figures.back().succeeded);
    }
    size_t best = runs.size();
    for (size_t i = 0; i < runs.size(); ++i) {
        const Figures& f = figures[i];
        if (f.scored == 0 || f.succeeded * 100 < most * 95) continue;
        if (best == runs.size() || f.rms_m < figures[best].rms_m ||
            (f.rms_m == figures[best].rms_m && f.succeeded > figures[best].succeeded)) {
            best = i;
        }
    }
    return best;
}

void printTable(FILE* out, const std::vector<SettingRun>& runs, size_t best, size_t default_index) {
    std::set<int> bandwidths;
    std::vector<std::string> labels;
    size_t label_width = 7;  // "setting"
    size_t ok_width = 8;     // "ok/total"
    for (size_t i = 0; i < runs.size(); ++i) {
        for (const Sample& s : runs[i].samples) bandwidths.insert(s.bw_mhz);
        labels.push_back(runs[i].setting.label() + (i == default_index ? " (default)" : ""));
        label_width = std::max(label_width, labels.back().size());
        const size_t n = runs[i].samples.size();
        ok_width = std::max(ok_width, fmt("%zu/%zu", n, n).size());
    }
    const int lw = static_cast<int>(label_width);
    const int ow = static_cast<int>(ok_width);
    auto row = [&](char mark, const std::string& label, const std::string& bw, const Figures& f) {
        fprintf(out, "%c %-*s  %-7s  %*s  %9s  %8s  %9s\n", mark, lw, label.c_str(), bw.c_str(), ow,
                fmt("%zu/%zu", f.succeeded, f.results).c_str(), number("%+.3f", f.mean_m).c_str(),
                number("%.3f", f.rms_m).c_str(), number("%.3f", f.p95_abs_m).c_str());
    };
    fprintf(out, "  %-*s  %-7s  %*s  %9s  %8s  %9s\n", lw, "setting", "BW", ow, "ok/total",
            "mean m", "RMS m", "p95 |e| m");
    for (size_t i = 0; i < runs.size(); ++i) {
        if (i > 0) fputc('\n', out);
        row(i == best ? '*' : ' ', labels[i], "all", figuresOf(runs[i].samples));
        for (int bw : bandwidths) {
            row(' ', "", bw == 0 ? "no bw" : fmt("%d MHz", bw),
                figuresWhere(runs[i].samples, [bw](const Sample& s) { return s.bw_mhz == bw; }));
        }
    }
}

std::string renderSvg(const std::vector<SettingRun>& runs, size_t best, size_t default_index,
                      const std::string& title) {
    const size_t n = runs.size();
    auto style = [&](size_t i) { return i == best ? 1 : i == default_index ? 2 : 0; };
    const double right = kWidth - kRight;

    // The run labels stand at 45 degrees under their boxes; the left margin
    // grows so that the first ones stay inside the picture.
    double left = 72;
    double label_px = 0;
    for (size_t i = 0; i < n; ++i) {
        const double w = static_cast<double>(runs[i].setting.label().size()) * kCharPx * 0.71;
        const double first_slot = (right - 72) / static_cast<double>(n);
        left = std::max(left, w - first_slot * (static_cast<double>(i) + 0.5) + 8);
        label_px = std::max(label_px, w);
    }
    left = std::min(left, kWidth / 3);
    const double slot = n > 0 ? (right - left) / static_cast<double>(n) : 0;

    // The error range follows the whiskers, so that one far outlier does not
    // squash the boxes; values beyond it are drawn at its edge.
    std::vector<std::vector<double>> errors(n);
    double lo = 0;
    double hi = 0;
    for (size_t i = 0; i < n; ++i) {
        for (const auto& te : truthAndError(runs[i].samples)) errors[i].push_back(te.second);
        if (errors[i].empty()) continue;
        lo = std::min(lo, percentile(errors[i], 5));
        hi = std::max(hi, percentile(errors[i], 95));
    }
    const double top1 = 100;
    const double top2 = top1 + kPlotHeight + label_px + 80;
    const double height = top2 + kPlotHeight + 50;
    const auto range1 = paddedRange(lo, hi, 0.25);
    const Axis y1{range1.first, range1.second, top1 + kPlotHeight, top1};

    std::string svg =
            fmt("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"%.0f\" "
                "height=\"%.0f\" viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" "
                "font-size=\"12\">\n",
                kWidth, height, kWidth, height);
    rect(svg, 0, 0, kWidth, height, "#fff", "none");
    text(svg, kWidth / 2, 28, title,
         " text-anchor=\"middle\" font-size=\"16\" font-weight=\"bold\"");
    text(svg, left, top1 - 36,
         "Error per setting: box = quartiles and median, whiskers = 5th to 95th percentile",
         " font-size=\"13\"");
    legend(svg, left, top1 - 14, {{1, "best"}, {2, "default"}});
    yAxis(svg, y1, left, right, "error (m)");
    for (size_t i = 0; i < n; ++i) {
        const int s = style(i);
        const double cx = left + slot * (static_cast<double>(i) + 0.5);
        const double ly = top1 + kPlotHeight + 14;
        text(svg, cx + 4, ly, runs[i].setting.label(),
             fmt(" text-anchor=\"end\" fill=\"%s\" transform=\"rotate(-45 %.1f %.1f)\"",
                 s ? kStroke[s] : "#000", cx + 4, ly)
                     .c_str());
        const std::vector<double>& e = errors[i];
        if (e.empty()) continue;
        const double p5 = percentile(e, 5), q1 = percentile(e, 25), med = percentile(e, 50);
        const double q3 = percentile(e, 75), p95 = percentile(e, 95);
        const double half = std::min(slot * 0.3, 20.0);
        line(svg, cx, y1.px(p5), cx, y1.px(q1), kStroke[s]);
        line(svg, cx, y1.px(q3), cx, y1.px(p95), kStroke[s]);
        line(svg, cx - half / 2, y1.px(p5), cx + half / 2, y1.px(p5), kStroke[s]);
        line(svg, cx - half / 2, y1.px(p95), cx + half / 2, y1.px(p95), kStroke[s]);
        rect(svg, cx - half, y1.px(q3), 2 * half, std::max(y1.px(q1) - y1.px(q3), 1.0), kFill[s],
             kStroke[s]);
        line(svg, cx - half, y1.px(med), cx + half, y1.px(med), kStroke[s], 2);
        for (double v : e) {
            if (v < p5 || v > p95) point(svg, cx, v, y1, kStroke[s], 2);
        }
    }

    // Error against true distance of the best and the default runs.
    std::vector<size_t> shown;
    if (best < n) shown.push_back(best);
    if (default_index < n && default_index != best) shown.push_back(default_index);
    std::vector<std::pair<int, std::string>> entries;
    double x_hi = 0, y_lo = 0, y_hi = 0;
    for (size_t i : shown) {
        const char* name = i != best ? "default" : i == default_index ? "best (default)" : "best";
        entries.emplace_back(style(i), std::string(name) + ": " + runs[i].setting.label() +
                                               (errors[i].empty() ? " (nothing scored)" : ""));
        for (const Sample& s : runs[i].samples) {
            if (isScored(s)) x_hi = std::max(x_hi, s.true_m);
        }
        y_lo = std::min(y_lo, percentile(errors[i], 1));
        y_hi = std::max(y_hi, percentile(errors[i], 99));
    }
    text(svg, left, top2 - 36, "Error against true distance", " font-size=\"13\"");
    legend(svg, left, top2 - 14, entries);
    const auto range2 = paddedRange(y_lo, y_hi, 0.08);
    const Axis y2{range2.first, range2.second, top2 + kPlotHeight, top2};
    const Axis x2{0, x_hi > 0 ? x_hi * 1.05 : 1, left, right};
    yAxis(svg, y2, left, right, "error (m)");
    xAxis(svg, x2, top2 + kPlotHeight, "true distance (m)");
    if (shown.empty()) {
        text(svg, (left + right) / 2, top2 + kPlotHeight / 2 - 12, "no scored samples",
             " text-anchor=\"middle\"");
    }
    for (size_t i : shown) {
        for (const auto& te : truthAndError(runs[i].samples)) {
            point(svg, x2.px(te.first), te.second, y2, kStroke[style(i)], 2.5);
        }
    }
    svg += "</svg>\n";
    return svg;
}

}  // namespace varn_tune
