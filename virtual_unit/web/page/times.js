// What goes on without the unit saying so: its clock, and how long recordings last.

import { state } from "./bind.js";
import { clockTime } from "./format.js";

let since = 0; // when the seconds of the recordings were told

export function noteTimes() {
  since = performance.now();
}

function showClock() {
  if (!state.clock) return;
  const now = Date.now() + state.clock.Offset / 1000;
  const [, ahead] = state.local.Offsets.findLast(([from]) => from * 1000 <= now) ?? [0, 0];
  const text = new Date(now + ahead * 1000).toISOString().slice(0, 19).replace("T", " ");
  const sign = ahead < 0 ? "−" : "+", minutes = Math.abs(Math.round(ahead / 60));
  document.getElementById("local-time").textContent = text;
  document.getElementById("ahead").textContent = `UTC${sign}${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, "0")}`;
}

export function tick() {
  showClock();
  for (const element of document.querySelectorAll(".time")) {
    const [seconds, runs] = state.times?.[element.dataset.kind] ?? [0, false];
    const more = runs ? (performance.now() - since) / 1000 : 0;
    element.textContent = seconds === null ? "–:––" : clockTime(seconds + more);
  }
}

export function keepTime() {
  tick();
  setTimeout(keepTime, 1000 - (Date.now() % 1000));
}
