#include "page.h"

namespace inspector
{

const char* const styleSheet = R"(
:root {
  color-scheme: light dark;
  --page: #fbfaf8; --card: #ffffff; --ink: #1c1b19; --soft: #625e57; --line: #dedad3; --accent: #0072b2;
  --right: 0, 114, 178; --wrong: 213, 94, 0;
}
@media (prefers-color-scheme: dark) {
  :root { --page: #161719; --card: #1f2124; --ink: #ecebe8; --soft: #a5a29b; --line: #3a3c40; --accent: #56b4e9;
    --right: 86, 180, 233; }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--ink); font: 16px/1.55 system-ui, sans-serif; }
main { max-width: 70rem; margin: 0 auto; padding: 2.5rem 1.25rem 4rem; }
h1 { font-size: 2.1rem; line-height: 1.15; margin: 0 0 .5rem; letter-spacing: -.02em; }
h2 { font-size: 1.35rem; margin: 3rem 0 .5rem; letter-spacing: -.01em; }
h3 { font-size: 1rem; margin: 0; }
p { max-width: 46rem; margin: .5rem 0; }
.soft, figcaption, caption { color: var(--soft); }
code, pre { font: .875rem/1.5 ui-monospace, "DejaVu Sans Mono", monospace; }
pre { background: var(--card); border: 1px solid var(--line); border-radius: .5rem; padding: .8rem 1rem;
  overflow-x: auto; max-width: 46rem; }
.row { display: grid; gap: 1.25rem; grid-template-columns: repeat(auto-fit, minmax(min(100%, 20rem), 1fr));
  margin: 1rem 0; }
.row.wide { grid-template-columns: repeat(auto-fit, minmax(min(100%, 28rem), 1fr)); }
.key { display: grid; gap: 1px; grid-template-columns: repeat(auto-fit, minmax(12rem, 1fr)); margin: 1.5rem 0;
  background: var(--line); border: 1px solid var(--line); border-radius: .6rem; overflow: hidden; }
.key div { background: var(--card); padding: .9rem 1.1rem; }
.key strong { display: block; font-size: 1.7rem; line-height: 1.2; font-variant-numeric: tabular-nums; }
.key span { color: var(--soft); font-size: .875rem; }
.card { background: var(--card); border: 1px solid var(--line); border-radius: .6rem; padding: 1rem 1.1rem; }
figure { margin: 0; }
figure.card { margin: 1rem 0; }
.row > figure.card { margin: 0; }
figcaption { font-size: .875rem; margin-top: .5rem; }
.laid { position: relative; border-radius: .4rem; overflow: hidden; }
.laid img { display: block; width: 100%; height: auto; background-size: 100% 100%; print-color-adjust: exact;
  -webkit-print-color-adjust: exact; }
.laid span { position: absolute; margin: .5rem; padding: .05rem .5rem; border-radius: 1rem; font-size: .8rem;
  font-weight: 600; color: #fff; background: rgba(0, 0, 0, .72); }
.legend { display: flex; flex-wrap: wrap; gap: .3rem 1.2rem; padding: 0; margin: .75rem 0; list-style: none; }
.swatch { display: inline-block; width: .95em; height: .95em; margin-right: .45em; border-radius: .2em;
  vertical-align: -.1em; border: 1px solid rgba(128, 128, 128, .6); print-color-adjust: exact;
  -webkit-print-color-adjust: exact; }
.scale { display: block; height: .6rem; margin-top: .4rem; border-radius: .2rem; print-color-adjust: exact;
  -webkit-print-color-adjust: exact; }
.ends { display: flex; justify-content: space-between; font-variant-numeric: tabular-nums; }
.point { border-left: 4px solid var(--accent); padding: .4rem .9rem; font-size: 1.1rem; }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; font-size: .94rem; }
caption { text-align: left; font-size: .875rem; padding-bottom: .5rem; }
th, td { padding: .35rem .7rem; text-align: right; border-bottom: 1px solid var(--line); white-space: nowrap; }
th { font-weight: 600; }
thead th { color: var(--soft); font-size: .82rem; vertical-align: bottom; }
th:first-child { text-align: left; padding-left: .2rem; }
.confusion { width: 100%; }
.confusion td { border: 2px solid var(--card); text-align: center; min-width: 2.6rem; }
.confusion th, .confusion td { padding: .35rem .3rem; }
.confusion thead th { text-align: center; white-space: normal; }
.confusion thead th:first-child { text-align: left; }
.result th, .result td { padding: .35rem .3rem; }
.spreads { font-size: .86rem; width: 100%; }
.result { width: 100%; }
.spreads th, .spreads td { padding: .35rem .4rem; }
.tile { display: flex; gap: .8rem; align-items: flex-start; margin: .6rem 0 .9rem; }
.pixels { image-rendering: pixelated; border-radius: .3rem; border: 1px solid var(--line); display: block; }
.measured { font-size: .8rem; }
.measured th, .measured td { padding: .05rem .3rem; border: 0; }
.measured th { font-weight: 400; color: var(--soft); }
.bar { display: inline-block; height: .6em; border-radius: .2em; background: var(--accent); margin-right: .4em;
  print-color-adjust: exact; -webkit-print-color-adjust: exact; vertical-align: baseline; }
.answers { display: grid; grid-template-columns: auto 1fr; gap: .15rem 1rem; margin: 0; max-width: 46rem; }
.answers dt { color: var(--soft); }
.answers dd { margin: 0; font-weight: 600; }
.strip { display: flex; flex-wrap: wrap; gap: .8rem; padding: 0; list-style: none; }
.strip li { font-size: .8rem; text-align: center; color: var(--soft); }
.strip img { margin: 0 auto .2rem; }
.error { border-left: 4px solid rgb(var(--wrong)); padding: .5rem .9rem; background: rgba(var(--wrong), .1);
  border-radius: 0 .4rem .4rem 0; max-width: 46rem; }
.drawing { display: block; width: 100%; min-width: 40rem; max-width: 54rem; height: auto; margin: 0 auto; font: 12px system-ui, sans-serif; }
.drawing text { fill: var(--ink); }
.drawing .faint { fill: var(--soft); }
.drawing .strong { font-weight: 600; }
.drawing .box { fill: var(--page); stroke: var(--line); }
.drawing .question { fill: var(--card); stroke: var(--soft); }
.drawing .branch { fill: none; stroke: var(--accent); stroke-opacity: .45; }
.drawing.small { min-width: 0; }
.drawing polygon.member { fill-opacity: .22; }
.drawing polyline { fill: none; stroke-width: 1.6; }
.drawing .edge { stroke: var(--ink); stroke-opacity: .35; stroke-width: 2.8; }
.drawing .mark { stroke: var(--ink); stroke-width: 1.4; }
.drawing .frame { fill: none; stroke: var(--line); }
)";

} // namespace inspector
