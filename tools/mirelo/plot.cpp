#include "plot.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <sstream>

namespace TarnoMirelo::Tool {
namespace {

constexpr double kPanelWidth = 320;
constexpr double kPanelHeight = 220;
constexpr double kLeft = 80;
constexpr double kTop = 50;
constexpr double kDistance = 440;  // from one panel's left edge to the next one's
constexpr const char* kColours[] = {"#0b62a4", "#d9590c", "#3a7d34", "#7a3e9d"};

std::string number(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string text(double x, double y, const char* anchor, const std::string& content) {
    std::ostringstream text;
    text << R"(<text x=")" << x << R"(" y=")" << y << R"(" text-anchor=")" << anchor << R"(">)" << content
         << "</text>\n";
    return text.str();
}

std::string line(double x1, double y1, double x2, double y2, const char* colour) {
    std::ostringstream text;
    text << R"(<line x1=")" << x1 << R"(" y1=")" << y1 << R"(" x2=")" << x2 << R"(" y2=")" << y2 << R"(" stroke=")"
         << colour << "\"/>\n";
    return text.str();
}

// 1, 2 or 5 times a power of ten: the step between lines, of which there are five at most.
double stepFor(double largest) {
    const double power = std::pow(10, std::floor(std::log10(std::max(largest, 1e-9) / 5)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (power * factor * 5 >= largest) return power * factor;
    }
    return power * 10;
}

// One way of predicting: a line for each engine over the same places.
class Panel {
 public:
    using Rates = std::vector<Rate> Measurement::*;

    Panel(double left, const char* title, Rates rates, const std::vector<Measurement>& measurements)
        : left_(left), title_(title), rates_(rates), measurements_(measurements) {
        std::set<unsigned int> counts;
        double largest = 0;
        for (const Measurement& measured : measurements) {
            for (const Rate& rate : measured.*rates) {
                counts.insert(rate.count);
                largest = std::max(largest, rate.perSecond);
            }
        }
        counts_.assign(counts.begin(), counts.end());
        step_ = stepFor(largest);
        top_ = std::max(std::ceil(largest / step_), 1.0) * step_;
    }

    std::string svg() const {
        std::string picture = text(left_ + kPanelWidth / 2, kTop - 12, "middle", title_);
        for (int i = 0; i <= std::lround(top_ / step_); ++i) {
            const double value = i * step_;
            picture += line(left_, y(value), left_ + kPanelWidth, y(value), "#ccc");
            picture += text(left_ - 6, y(value) + 4, "end", number(value));
        }
        for (const unsigned int count : counts_) {
            picture += text(x(count), kTop + kPanelHeight + 18, "middle", std::to_string(count));
        }
        for (size_t i = 0; i < measurements_.size(); ++i) picture += curve(measurements_[i].*rates_, kColours[i % 4]);
        return picture;
    }

 private:
    // Places stand at equal distances, whatever their numbers.
    double x(unsigned int count) const {
        const auto place = std::find(counts_.begin(), counts_.end(), count) - counts_.begin();
        return left_ + kPanelWidth * (static_cast<double>(place) + 0.5) / static_cast<double>(counts_.size());
    }
    double y(double value) const { return kTop + kPanelHeight * (1 - value / top_); }

    std::string curve(const std::vector<Rate>& rates, const std::string& colour) const {
        std::ostringstream points;
        std::ostringstream dots;
        for (const Rate& rate : rates) {
            points << x(rate.count) << ',' << y(rate.perSecond) << ' ';
            dots << R"(<circle cx=")" << x(rate.count) << R"(" cy=")" << y(rate.perSecond) << R"(" r="3" fill=")"
                 << colour << "\"/>\n";
        }
        return R"(<polyline fill="none" stroke-width="2" stroke=")" + colour + R"(" points=")" + points.str() +
               "\"/>\n" + dots.str();
    }

    double left_;
    const char* title_;
    Rates rates_;
    const std::vector<Measurement>& measurements_;
    std::vector<unsigned int> counts_;
    double step_ = 1;
    double top_ = 1;
};

}  // namespace

std::string plot(const std::vector<Measurement>& measurements) {
    std::vector<Measurement> shown;
    std::copy_if(measurements.begin(), measurements.end(), std::back_inserter(shown),
                 [](const Measurement& measured) { return measured.problem.empty(); });
    std::string picture =
        R"(<svg xmlns="http://www.w3.org/2000/svg" width="880" height="330" font-family="sans-serif" font-size="12">)"
        "\n<rect width=\"880\" height=\"330\" fill=\"white\"/>\n";
    picture += Panel(kLeft, "Rows a second, by rows in a batch", &Measurement::byRows, shown).svg();
    picture += Panel(kLeft + kDistance, "Rows a second, by threads that predict", &Measurement::byThreads, shown).svg();
    for (size_t i = 0; i < shown.size(); ++i) {
        const double left = kLeft + 140 * static_cast<double>(i);
        picture +=
            "<rect x=\"" + number(left) + R"(" y="304" width="14" height="4" fill=")" + kColours[i % 4] + "\"/>\n";
        picture += text(left + 20, 311, "start", shown[i].engine);
    }
    return picture + "</svg>\n";
}

}  // namespace TarnoMirelo::Tool
