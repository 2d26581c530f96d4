/// @file svg_panel.h  Line charts as SVG, made to be read in print: black on white, lines told apart by dashes.
#pragma once

#include <string>
#include <vector>

namespace qv::tool::inspect {

struct Axis {
  std::string label;
  double low, high, step;               ///< the step between ticks
  std::vector<std::string> labels = {}; ///< of the ticks, where they are not the numbers themselves
};

struct ChartPoint {
  double x, y;
};

/// One chart within a picture. Points outside the axes are cut off.
class SvgPanel {
public:
  /// @param top,height  of the plotted area in the picture, px; its width is that of every panel
  SvgPanel(std::string title, Axis x, Axis y, double top, double height);

  /// @param style  SVG attributes of the stroke, one of the styles below
  void line(const std::vector<ChartPoint> &points, const std::string &style);
  void marker(ChartPoint at);
  void shade(double x_low, double x_high);
  void legend(const std::string &text, const std::string &style); ///< the next line below the axis

  const std::string &svg() const { return body_; }
  double end() const; ///< of axis and legend, px from the top of the picture

private:
  double bottom() const { return top_ + height_; } ///< of the plotted area
  double px(double x) const;
  double py(double y) const;
  void frame(const std::string &title);

  Axis x_, y_;
  double top_, height_;
  int legend_lines_ = 0;
  std::string clip_;
  std::string body_;
};

inline constexpr const char *solid = "stroke=\"#000\" stroke-width=\"2\"";
inline constexpr const char *dashed = "stroke=\"#0050a0\" stroke-width=\"2\" stroke-dasharray=\"9 5\"";
inline constexpr const char *dotted = "stroke=\"#a03000\" stroke-width=\"2\" stroke-dasharray=\"2 4\"";
inline constexpr const char *faint = "stroke=\"#888\" stroke-width=\"1\" stroke-dasharray=\"4 3\"";

/// The picture of panels, one below the other.
std::string svg_document(const std::string &title, const std::vector<SvgPanel> &panels);

} // namespace qv::tool::inspect
