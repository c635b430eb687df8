#include "client/commands/BandwidthCommand.h"

#include "base/Text.h"
#include "client/plot/BarChart.h"
#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "wire/Methods.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t totalsPage = 500; // the daemon's own limit
constexpr std::size_t mostTotals = 100'000;
constexpr int shareColumns = 30;

/// How far back to look when nothing is said: as much as fits a screen. 0: all there is.
double usualDays(const std::string& by) { return by == "hour" ? 1 : by == "day" ? 30 : by == "month" ? 366 : 0; }

std::string labelOf(const Value& total, const std::string& by)
{
    if ((by == "network" || by == "station") && integer(total, "key") == -1) {
        return "(no Wi-Fi)";
    }
    const std::string name = text(total, "name").value_or("");
    std::string label = text(total, "bssid").value_or(""); // first, as names may be too long to be shown whole
    label += (label.empty() || name.empty() ? "" : "  ") + name;
    return printable(label.empty() ? text(total, "key").value_or("?") : label);
}

/// Asks page after page until there are no more.
class BandwidthQuery {
public:
    explicit BandwidthQuery(Session& session) : session_(session)
    {
        const Arguments& arguments = session.arguments();
        parameters_["by"] = arguments.bandwidthBy;
        parameters_["limit"] = totalsPage;
        if (const double days = arguments.days > 0 ? arguments.days : usualDays(arguments.bandwidthBy); days > 0) {
            parameters_["from"] = wallTime() - days * day;
        }
        if (!arguments.interfaceName.empty()) {
            parameters_["interface"] = validUtf8(arguments.interfaceName);
        }
        if (arguments.all) {
            parameters_["interfaces"] = "all";
        }
    }

    void ask()
    {
        session_.call(method::bandwidthTotals, Value::array({parameters_}), [this](const Value& page) { take(page); });
    }

private:
    void take(const Value& page)
    {
        const Value* totals = find(page, "totals");
        if (!totals || !totals->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no totals: " + terminalJson(page));
        }
        totals_.insert(totals_.end(), totals->begin(), totals->end());
        const Value* more = find(page, "more");
        const Value* last = totals->empty() ? nullptr : find(totals->back(), "key");
        if (more && *more == true && last && totals_.size() < mostTotals) {
            parameters_["after"] = *last;
            return ask();
        }
        report(page);
    }

    void report(Value answer)
    {
        const std::vector<AmountBar> bars = makeBars();
        if (!session_.arguments().svgPath.empty() && !writePicture(bars)) {
            return;
        }
        bool printed = true;
        if (session_.arguments().json) {
            answer["totals"] = std::move(totals_);
            answer["more"] = false;
            printed = session_.print(terminalJson(answer) + '\n');
        } else if (session_.arguments().svgPath.empty()) {
            printed = session_.print(textOf(bars, answer));
        }
        if (printed) {
            session_.finish(exitStatus::success);
        }
    }

    std::vector<AmountBar> makeBars() const
    {
        const std::string& by = session_.arguments().bandwidthBy;
        std::vector<AmountBar> bars;
        for (const Value& total : totals_) {
            bars.push_back({.label = labelOf(total, by),
                .upload = std::max(0.0, number(total, "upload").value_or(0)),
                .download = std::max(0.0, number(total, "download").value_or(0))});
        }
        if (by == "interface" || by == "network"
            || by == "station") { // times stay in their order, things stand by size
            std::stable_sort(bars.begin(), bars.end(),
                [](const AmountBar& a, const AmountBar& b) { return a.upload + a.download > b.upload + b.download; });
        }
        return bars;
    }

    Lines textOf(const std::vector<AmountBar>& bars, const Value& answer) const
    {
        if (bars.empty()) {
            return {{{Style::Plain, "nothing recorded"}}};
        }
        std::string heading = session_.arguments().bandwidthBy;
        std::transform(heading.begin(), heading.end(), heading.begin(),
            [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
        Lines lines = barChartLines(heading, bars, shareColumns);
        const double download = number(answer, "download").value_or(0);
        const double upload = number(answer, "upload").value_or(0);
        lines.push_back({});
        lines.push_back({{Style::Title, "all"},
            {Style::Plain,
                "  " + formatBytes(download) + " down, " + formatBytes(upload) + " up, "
                    + formatBytes(download + upload) + " together"}});
        return lines;
    }

    bool writePicture(const std::vector<AmountBar>& bars)
    {
        const Arguments& arguments = session_.arguments();
        errno = 0;
        std::ofstream file(arguments.svgPath, std::ios::binary | std::ios::trunc);
        file << barChartSvg("Bandwidth by " + arguments.bandwidthBy, bars);
        file.close();
        if (!file) {
            session_.fail(exitStatus::refused, arguments.svgPath + ": " + std::strerror(errno != 0 ? errno : EIO));
        }
        return static_cast<bool>(file);
    }

    Session& session_;
    Value parameters_ = Value::object();
    Value totals_ = Value::array();
};

} // namespace

int runBandwidth(Session& session)
{
    BandwidthQuery query(session);
    return session.run([&query] { query.ask(); });
}

} // namespace meridal
