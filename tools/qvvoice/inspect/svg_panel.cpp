#include "inspect/svg_panel.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "para/words.h"

namespace qv::tool::inspect {

namespace {

constexpr double picture_width = 720, left = 70, width = 620; // px

std::string escaped(const std::string &text) {
  std::string result;
  for (const char c : text)
    result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
  return result;
}

std::string text_at(double x, double y, const std::string &text, const char *anchor, const char *more = "") {
  return fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\"{}>{}</text>\n", x, y, anchor, more,
                     escaped(text));
}

std::string line_at(double x1, double y1, double x2, double y2, const char *style) {
  return fmt::format("<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" {}/>\n", x1, y1, x2, y2, style);
}

} // namespace

SvgPanel::SvgPanel(std::string title, Axis x, Axis y, double top, double height)
    : x_(std::move(x)), y_(std::move(y)), top_(top), height_(height), clip_(fmt::format("plot{:.0f}", top)) {
  frame(title);
}

double SvgPanel::px(double x) const { return left + width * (x - x_.low) / (x_.high - x_.low); }
double SvgPanel::py(double y) const { return bottom() - height_ * (y - y_.low) / (y_.high - y_.low); }

void SvgPanel::frame(const std::string &title) {
  constexpr const char *grid = "stroke=\"#ddd\"";
  const auto ticks = [](const Axis &axis) { return int(std::floor((axis.high - axis.low) / axis.step + 1e-6)); };
  const auto label = [](const Axis &axis, int i) {
    return axis.labels.empty() ? para::plain(axis.low + i * axis.step) : axis.labels[size_t(i)];
  };
  for (int i = 0; i <= ticks(x_); ++i) {
    const double x = px(x_.low + i * x_.step);
    body_ += line_at(x, top_, x, bottom(), grid);
    body_ += text_at(x, bottom() + 18, label(x_, i), "middle");
  }
  for (int i = 0; i <= ticks(y_); ++i) {
    const double y = py(y_.low + i * y_.step);
    body_ += line_at(left, y, left + width, y, grid);
    body_ += text_at(left - 6, y + 4, label(y_, i), "end");
  }
  const std::string box = fmt::format("x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\"", left, top_, width, height_);
  body_ += fmt::format("<rect {} fill=\"none\" stroke=\"#000\"/>\n<clipPath id=\"{}\"><rect {}/></clipPath>\n", box,
                       clip_, box);
  body_ += text_at(left, top_ - 10, title, "start", " font-weight=\"bold\"");
  body_ += text_at(left + width / 2, bottom() + 38, x_.label, "middle");
  const double middle = top_ + height_ / 2;
  body_ += text_at(18, middle, y_.label, "middle", fmt::format(" transform=\"rotate(-90 18 {})\"", middle).c_str());
}

void SvgPanel::line(const std::vector<ChartPoint> &points, const std::string &style) {
  std::string path;
  for (const ChartPoint &point : points)
    path += fmt::format("{:.1f},{:.1f} ", px(point.x), std::clamp(py(point.y), -1e4, 1e4));
  body_ += fmt::format("<polyline clip-path=\"url(#{})\" fill=\"none\" {} points=\"{}\"/>\n", clip_, style, path);
}

void SvgPanel::marker(ChartPoint at) {
  body_ += fmt::format("<circle clip-path=\"url(#{})\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"4\" fill=\"#fff\" "
                       "stroke=\"#000\" stroke-width=\"1.5\"/>\n",
                       clip_, px(at.x), py(at.y));
}

void SvgPanel::shade(double x_low, double x_high) {
  body_ += fmt::format("<rect x=\"{:.1f}\" y=\"{}\" width=\"{:.1f}\" height=\"{}\" fill=\"#000\" "
                       "fill-opacity=\"0.08\"/>\n",
                       px(x_low), top_, px(x_high) - px(x_low), height_);
}

void SvgPanel::legend(const std::string &text, const std::string &style) {
  const double y = end();
  ++legend_lines_;
  body_ += line_at(left, y, left + 42, y, style.c_str());
  body_ += text_at(left + 50, y + 4, text, "start");
}

double SvgPanel::end() const { return bottom() + 58 + 18 * legend_lines_; }

std::string svg_document(const std::string &title, const std::vector<SvgPanel> &panels) {
  const double height = panels.back().end();
  std::string text = fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
                                 "viewBox=\"0 0 {0} {1}\" font-family=\"sans-serif\" font-size=\"13\">\n"
                                 "<title>{2}</title>\n<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n",
                                 picture_width, height, escaped(title));
  for (const SvgPanel &panel : panels)
    text += panel.svg();
  return text + "</svg>\n";
}

} // namespace qv::tool::inspect
