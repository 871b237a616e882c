#include "templates.hpp"

namespace gantrygen::templates
{

const std::string_view page = R"html(
<!DOCTYPE html>
<!-- Made by gantrygen from the tables com/**/server.xml. Changes belong there. -->
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>libdbusgantry: the catalogue</title>
<style>
:root { color-scheme: light dark; --line: #8884; --soft: #8881; }
body { font: 15px/1.45 system-ui, sans-serif; max-width: 80rem; margin: auto; padding: 0 1rem 4rem; }
header { position: sticky; top: 0; background: Canvas; padding: .6rem 0; border-bottom: 1px solid var(--line); }
header input { font: inherit; width: min(30rem, 60%); padding: .3rem .6rem; }
output { margin-left: .8rem; opacity: .7; }
h1 { font-size: 1.3rem; margin: 0 0 .4rem; }
h2 { font-size: 1.1rem; margin: 2.2rem 0 .2rem; overflow-wrap: anywhere; scroll-margin-top: 6rem; }
p { margin: .3rem 0; max-width: 60rem; }
table { border-collapse: collapse; width: 100%; margin: .5rem 0; }
th, td { text-align: left; vertical-align: top; padding: .2rem .6rem .2rem 0; border-bottom: 1px solid var(--line); }
th { opacity: .7; font-weight: normal; }
code { font-size: .88em; overflow-wrap: anywhere; }
tr { scroll-margin-top: 6rem; }
tr:target { background: #fc04; }
tbody tr:hover { background: var(--soft); }
.index { columns: 16rem; column-gap: 2rem; list-style: none; padding: 0; font-size: .85rem; }
.index li { break-inside: avoid; padding-left: 1rem; text-indent: -1rem; }
.index a { white-space: nowrap; }
.names td:first-child { width: 20%; }
.members { min-width: 50rem; }
.members td:nth-child(1) { width: 21%; }
.members td:nth-child(2), .members td:nth-child(3) { width: 7%; }
.members td:nth-child(4) { width: 25%; }
section { overflow-x: auto; }
[hidden], .searching .contents { display: none; }
</style>
</head>
<body>
<header>
<h1>libdbusgantry: the catalogue</h1>
<input type="search" placeholder="Words of a name, type or meaning" aria-label="Search" autofocus>
<output></output>
</header>

<div class="contents">
<p>The library stores and serves values without interpreting them: where no codes, units or scale
are given, the host defines them. Meaning is left empty where the name says it.</p>
<p>An object's default path is its interface's name with slashes. A property starts at zero, false or
empty where no other value is given; <i>const</i>: no change is announced; <i>writable</i>: clients may
set it too; <i>key</i>: setting it registers the object with the data store.</p>
<table class="names">
%each interfaces
<tr><td><a href="#$interface">$leaf</a></td><td>$summary</td></tr>
%end
</table>
<h2>Index</h2>
<ul class="index">
%each index
<li><code>$name</code>
%each places
<a href="#$interface.$name">$leaf</a>
%end
</li>
%end
</ul>
</div>

%each interfaces
<section>
<h2 id="$interface">$interface</h2>
<p class="summary">$summary</p>
%if doc
<p>$doc</p>
%end
<p><code>$instantiate</code>, <code>&lt;$directory/gantry_server.h&gt;</code>,
<code>$server::$class</code></p>
<table class="members">
<thead><tr><th>member</th><th>kind</th><th>signature</th><th>in C or C++</th><th>meaning</th></tr></thead>
<tbody>
%each methods
<tr id="$interface.$member"><td><code>$member</code></td><td>method</td>
<td><code>$inputs → $outputs</code></td><td><code>void (*$member)($function)</code></td><td>$doc
%if privileged
<i>for privileged clients</i>
%end
</td></tr>
%end
%each signals
<tr id="$interface.$member"><td><code>$member</code></td><td>signal</td>
<td><code>$signature</code></td><td><code>$send</code>, <code>$receive</code></td><td>$doc</td></tr>
%end
%each properties
<tr id="$interface.$member"><td><code>$member</code></td><td>property</td>
<td><code>$signature</code></td><td><code>$type $accessor()</code></td><td>$doc
%if initial
Starts at $initial.
%end
%if flags
<i>$flags</i>
%end
</td></tr>
%end
</tbody>
</table>
</section>
%end

<script>
const field = document.querySelector("input"), sections = [...document.querySelectorAll("section")];
function show(words, part) {
  let found = 0;
  for (const section of sections) {
    const about = [...section.querySelectorAll(part)].map(each => each.textContent).join(" ");
    let shown = 0;
    for (const row of section.querySelectorAll("tbody tr")) {
      const text = (about + " " + row.textContent).toLowerCase();
      row.hidden = !words.every(word => text.includes(word));
      shown += !row.hidden;
    }
    section.hidden = shown === 0;
    found += shown;
  }
  return found;
}
function search() {
  const words = field.value.toLowerCase().split(/\s+/).filter(Boolean);
  const found = show(words, "h2") || show(words, "h2, .summary");
  document.body.classList.toggle("searching", words.length > 0);
  document.querySelector("output").textContent = found + (found === 1 ? " member" : " members");
}
field.addEventListener("input", search);
field.value = new URLSearchParams(location.search).get("q") || "";
search();
</script>
</body>
</html>
)html";

} // namespace gantrygen::templates
