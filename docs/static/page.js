// Marks tables that are wider than the screen, so that the style can say so.
"use strict";

function markTables() {
  for (const table of document.querySelectorAll(".table-wrapper")) {
    table.classList.toggle("scrolls", table.scrollWidth > table.clientWidth + 1);
  }
}

window.addEventListener("load", markTables);
window.addEventListener("resize", markTables);
