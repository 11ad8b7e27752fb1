#include "page_style.hpp"

namespace report {

// Notes stand here because a comment inside would be sent with every page. The colours are the inks
// of pictures, and for screens that are dark the same hues, lighter; paper has the light ones
// always. 1500px hold three pictures of a BPM side by side, or the overview at its largest. Below
// 1100px and 700px an overview would have shrunk to less than nine tenths, so the next narrower one
// takes its place. min(440px,100%) and its like keep a column from being wider than a telephone,
// overflow-wrap does so for paths and names, which may be longer than any line. On paper fold-outs
// stand only where somebody opened them: a hundred folded headlines would be pages of nothing.
std::string_view page_style() {
  return R"css(
:root{color-scheme:light dark;--ink:#1f2328;--quiet:#656d76;--grid:#dee2e6;--band:#f3f5f7;
--paper:#fff;--back:#f6f8fa;--b1:#0072b2;--b2:#d55e00;--b3:#009169;--b4:#aa4499;--alarm:#be1228;
--good:#1a7f4b;--warn:#9a6700;--link:#0969da}
@media screen and (prefers-color-scheme:dark){:root{--ink:#e6edf3;--quiet:#9aa4af;--grid:#30363d;
--band:#1b2129;--paper:#12161c;--back:#0b0e13;--b1:#56b4e9;--b2:#ff8f4d;--b3:#2fc79b;--b4:#e594d0;
--alarm:#ff7b86;--good:#4ac27f;--warn:#e3b341;--link:#6cb6ff}}
*{box-sizing:border-box}
body{margin:0;background:var(--back);color:var(--ink);font:15px/1.45 system-ui,-apple-system,
"Segoe UI","DejaVu Sans",Roboto,sans-serif;overflow-wrap:anywhere}
main{max-width:1500px;margin:0 auto;padding:16px}
header{padding:8px 0 0}
h1{font-size:1.2rem;margin:0 0 .6rem;font-weight:600;color:var(--quiet)}
h2{font-size:1.15rem;margin:2rem 0 .6rem}
a{color:var(--link)}
.verdict{font-size:1.45rem;line-height:1.3;font-weight:650;margin:0 0 .8rem;padding:.7rem 1rem;
background:var(--paper);border-left:6px solid var(--good);border-radius:4px}
.verdict.some{border-color:var(--warn)}.verdict.none{border-color:var(--alarm)}
.ended{color:var(--alarm);font-weight:600}
.counts{display:flex;flex-wrap:wrap;gap:.5rem;padding:0;margin:0 0 .8rem;list-style:none}
.counts li{background:var(--paper);border:1px solid var(--grid);border-radius:4px;padding:.25rem .7rem}
.counts b{font-size:1.15rem;margin-right:.35rem;font-variant-numeric:tabular-nums}
.facts{display:flex;flex-wrap:wrap;gap:.1rem 1.6rem;margin:0;font-size:.92rem}
.facts dt,.facts dd{display:inline;margin:0}.facts dt{color:var(--quiet);margin-right:.45rem}
.look{list-style:none;margin:0;padding:0;display:grid;gap:.4rem;
grid-template-columns:repeat(auto-fill,minmax(min(440px,100%),1fr))}
.look li{background:var(--paper);border:1px solid var(--grid);border-left:4px solid var(--alarm);
border-radius:4px;padding:.4rem .8rem}
.look .weak,.look .not_fitted{border-left-color:var(--warn)}
.word{font-weight:600;white-space:nowrap}
.determined .word{color:var(--good)}.weak .word{color:var(--warn)}.not_fitted .word{color:var(--quiet)}
.suspect .word,.not_determined .word{color:var(--alarm)}
.picture{background:var(--paper);border:1px solid var(--grid);border-radius:4px;padding:8px;margin:0}
svg{display:block;width:100%;height:auto;margin:0 auto}
svg text{fill:var(--ink);font-family:"DejaVu Sans",Verdana,"Segoe UI",Roboto,sans-serif}
.narrow,.middle{display:none}
@media (max-width:1100px){.wide{display:none}.middle{display:block}}
@media (max-width:700px){.middle{display:none}.narrow{display:block}}
.scroll{overflow-x:auto;border:1px solid var(--grid);border-radius:4px;background:var(--paper)}
table{border-collapse:collapse;font-size:.85rem;font-variant-numeric:tabular-nums;width:100%}
th,td{padding:.25rem .5rem;text-align:right;white-space:nowrap;border-bottom:1px solid var(--grid)}
th{vertical-align:bottom;background:var(--band);font-weight:600;text-align:right}
details table{width:auto}details .scroll{width:fit-content;max-width:100%}td.t,th.t{text-align:left}td.why{white-space:normal;min-width:18rem}
th button{all:unset;cursor:pointer;font:inherit}th button:focus-visible{outline:2px solid var(--link)}
th[aria-sort=ascending] button::after{content:" ▲"}
th[aria-sort=descending] button::after{content:" ▼"}
tbody tr:nth-child(even){background:var(--band)}
details{background:var(--paper);border:1px solid var(--grid);border-radius:4px;margin:0 0 .4rem}
summary{cursor:pointer;padding:.4rem .8rem}
summary .name{font-weight:650}summary .rest{color:var(--quiet)}
details>div{padding:0 .8rem .8rem}
.figures{display:grid;grid-template-columns:repeat(auto-fill,minmax(min(400px,100%),1fr));gap:12px;
margin-top:.6rem}
figure{margin:0;min-width:0}figcaption{font-size:.82rem;color:var(--quiet);padding:.2rem .3rem}
.c1{color:var(--b1)}.c2{color:var(--b2)}.c3{color:var(--b3)}.c4{color:var(--b4)}
code,.path{font-family:ui-monospace,"DejaVu Sans Mono",monospace;font-size:.88em}
footer{color:var(--quiet);font-size:.85rem;margin-top:2rem}
@media print{body{background:#fff;font-size:10pt}main{padding:0;max-width:none}
.middle{display:block}.wide,.narrow{display:none}.scroll{overflow:visible}table{font-size:6.5pt}
th,td{padding:.1rem .25rem}td.why{min-width:12em}
section:has(details):not(:has(details[open])){display:none}details:not([open]){display:none}
.picture,details,figure,.look li,tr{break-inside:avoid}a{color:inherit;text-decoration:none}}
)css";
}

// No text of the data ever stands in here, so none can run or end it. Headings become buttons by
// the script: without it there is no button that does nothing. What is not known stays last
// whichever way a column is sorted; names sort as people count, 2W before 12W. A link to a fold-out
// that is closed would lead to its headline only, so it is opened. Old forms of the language on
// purpose: a page is looked at with what is there.
std::string_view page_script() {
  return R"js(
(function(){
var table=document.querySelector('table.sortable');
if(table){
 var body=table.tBodies[0],heads=table.tHead.rows[0].cells;
 function key(row,i){var c=row.cells[i];return c.hasAttribute('data-v')?c.getAttribute('data-v'):c.textContent;}
 function sort(i){
  var up=heads[i].getAttribute('aria-sort')!=='ascending',rows=Array.prototype.slice.call(body.rows);
  rows.sort(function(a,b){
   var p=key(a,i),q=key(b,i);
   if(p===q)return 0;
   if(p===''||q==='')return p===''?1:-1;
   var d=isNaN(p)||isNaN(q)?p.localeCompare(q,undefined,{numeric:true}):p-q;
   return up?d:-d;});
  rows.forEach(function(r){body.appendChild(r);});
  for(var k=0;k<heads.length;k++)heads[k].removeAttribute('aria-sort');
  heads[i].setAttribute('aria-sort',up?'ascending':'descending');
 }
 Array.prototype.forEach.call(heads,function(h,i){
  var b=document.createElement('button');b.type='button';b.title='Sort by this column';
  while(h.firstChild)b.appendChild(h.firstChild);
  h.appendChild(b);b.addEventListener('click',function(){sort(i);});
 });
}
function open(){
 var at=location.hash.slice(1)&&document.getElementById(location.hash.slice(1));
 if(at&&at.tagName==='DETAILS'){at.open=true;at.scrollIntoView();}
}
window.addEventListener('hashchange',open);open();
})();
)js";
}

}  // namespace report
