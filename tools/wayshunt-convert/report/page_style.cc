// Outcome colours and the page's CSS. Text on an outcome's colour is dark
// except on the darkest (failed).
#include "report/page_style.h"

namespace wsc {

namespace {

struct OutcomeLook {
  std::string_view name, fill, ink;
};

constexpr OutcomeLook kLooks[] = {
    {"clean", "#3ebd93", "#06281c"},  {"changes", "#62b0e8", "#0a2a42"}, {"losses", "#f7c948", "#3d2a00"},
    {"damage", "#ef4e4e", "#3b0707"}, {"failed", "#4a1d6b", "#ffffff"},
};
constexpr OutcomeLook kOther = {"other", "#bcccdc", "#243b53"};

const OutcomeLook &look(std::string_view outcome) {
  for (const OutcomeLook &l : kLooks)
    if (l.name == outcome) return l;
  return kOther;
}

constexpr const char *kLayout = R"css(
*{box-sizing:border-box}
body{margin:0;background:#f0f4f8;color:#102a43;font:14px/1.45 "DejaVu Sans",system-ui,sans-serif}
main{max-width:1280px;margin:0 auto;padding:0 24px 48px}
header.top{background:#102a43;color:#f0f4f8;padding:20px 24px 16px;margin-bottom:20px}
header.top h1{margin:0 0 10px;font-size:22px;font-weight:600}
header.top dl{display:grid;grid-template-columns:max-content 1fr max-content 1fr;gap:4px 16px;margin:0;max-width:1232px}
header.top dt{color:#9fb3c8}
header.top dd{margin:0;overflow-wrap:anywhere}
.banner{background:#ef4e4e;color:#fff;font-weight:600;padding:10px 16px;border-radius:6px;margin:0 0 16px}
section.block{background:#fff;border-radius:8px;box-shadow:0 1px 3px rgba(16,42,67,.12);padding:16px 20px;margin:0 0 20px}
h2{font-size:18px;margin:0 0 12px}
h3{font-size:15px;margin:16px 0 8px}
h4{font-size:13px;margin:12px 0 4px;color:#334e68}
.muted{color:#627d98}
code,.mono{font-family:"DejaVu Sans Mono",monospace;font-size:12px}
.legend{display:flex;flex-wrap:wrap;gap:8px 18px;margin:0 0 12px;padding:0;list-style:none}
.legend li{display:flex;align-items:center;gap:6px}
.swatch{display:inline-block;width:14px;height:14px;border-radius:3px}
.scroll{overflow-x:auto}
table.matrix{border-collapse:separate;border-spacing:3px}
table.matrix th{font-weight:600;font-size:12px;text-align:left;vertical-align:bottom;padding:2px 6px}
table.matrix th.move{min-width:92px;max-width:140px}
table.matrix th a{color:#243b53;text-decoration:none}
table.matrix th.image{white-space:nowrap}
table.matrix th.image small{display:block;font-weight:400;color:#627d98}
td.cell{min-width:92px;height:30px;text-align:center;border-radius:4px;font-size:12px;font-weight:600;padding:0}
td.cell a{display:block;padding:6px 4px;color:inherit;text-decoration:none}
td.cell a:hover{outline:2px solid #102a43;border-radius:4px}
td.cell.none{background:#e4e7eb;color:#7b8794;font-weight:400}
td.cell.na{background:transparent;color:#cbd2d9;font-weight:400}
td.error{background:#fff3f3;color:#8a1c1c;border:1px dashed #ef4e4e;border-radius:4px;padding:6px 10px;font-size:12px}
.moves{display:grid;gap:16px}
.move-card{border:1px solid #d9e2ec;border-radius:8px;padding:12px 14px}
.move-card h3{margin:0 0 4px}
.charts{display:flex;flex-wrap:wrap;gap:12px 28px;align-items:flex-start}
.charts figure{margin:0}
.charts figcaption{font-size:12px;color:#627d98;margin-bottom:2px}
svg text{font-size:11px;fill:#334e68}
svg text.rung{font-size:11px;fill:#102a43;font-weight:600}
svg text.sub{font-size:10px;fill:#829ab1}
svg text.fig{font-size:10px;fill:#486581}
details.cd{border:1px solid #d9e2ec;border-left-width:6px;border-radius:6px;margin:6px 0;background:#fff}
details.cd>summary{cursor:pointer;padding:6px 10px;list-style-position:inside}
details.cd[open]>summary{border-bottom:1px solid #d9e2ec;background:#f8fafc}
details.cd:target{box-shadow:0 0 0 3px #2680c2}
.cd-body{padding:6px 14px 12px}
.tag{display:inline-block;border-radius:3px;padding:0 6px;font-size:12px;font-weight:600;margin-right:6px}
table.plain{border-collapse:collapse;font-size:12px;margin:4px 0}
table.plain th,table.plain td{border-bottom:1px solid #e4e7eb;padding:3px 8px;text-align:left;vertical-align:top}
table.plain th{background:#f0f4f8;font-weight:600}
table.plain td.num,table.plain th.num{text-align:right;font-variant-numeric:tabular-nums}
ol.items{margin:2px 0;padding-left:28px;font-family:"DejaVu Sans Mono",monospace;font-size:11.5px}
ol.items li{overflow-wrap:anywhere}
p.more{margin:2px 0 0 28px;color:#627d98;font-style:italic}
p.failure{background:#fff3f3;border-left:4px solid #ef4e4e;padding:6px 10px;margin:6px 0}
.verdict-yes{color:#147d64;font-weight:600}
.verdict-no{color:#ab091e;font-weight:600}
)css";

}  // namespace

std::string_view outcome_colour(std::string_view outcome) { return look(outcome).fill; }

std::string outcome_class(std::string_view outcome) { return "o-" + std::string(look(outcome).name); }

std::string page_css() {
  std::string css = kLayout;
  auto rule = [&](const OutcomeLook &l) {
    css += ".o-" + std::string(l.name) + "{background:" + std::string(l.fill) + ";color:" + std::string(l.ink) + "}";
    css += "details.cd.o-" + std::string(l.name) + "{background:#fff;color:inherit;border-left-color:" +
           std::string(l.fill) + "}\n";
  };
  for (const OutcomeLook &l : kLooks) rule(l);
  rule(kOther);
  return css;
}

}  // namespace wsc
