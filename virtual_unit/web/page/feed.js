// Calls, signals and log lines as they come, with a filter.

import { short } from "./format.js";

const MOST_ROWS = 400;
const LEVELS = ["emergency", "alert", "critical", "error", "warning", "notice", "info", "debug"];
const byId = (id) => document.getElementById(id);

function time(at) {
  if (!at) return "before";
  const date = new Date(at);
  return date.toTimeString().slice(0, 8) + "." + String(date.getMilliseconds()).padStart(3, "0");
}

function part(name, text) {
  const element = document.createElement("span");
  element.className = name;
  element.textContent = text;
  return element;
}

function row(line) {
  const item = document.createElement("li");
  item.className = line.kind + (line.kind === "log" && line.level <= 3 ? " error" : "") + (line.fault ? " faulty" : "");
  item.line = line;
  item.words = `${line.kind} ${line.who ?? ""} ${line.what ?? ""} ${line.text} ${line.fault ?? ""}`.toLowerCase();
  const kind = line.kind === "log" ? LEVELS[line.level] : line.kind;
  item.append(part("at", time(line.at)), part("kind", kind), part("what", line.what ? `${line.who} ${line.what}` : ""),
              part("text", short(line.text)));
  if (line.fault) item.append(part("fault", `met ${line.fault}`));
  return item;
}

export class Feed {
  constructor() {
    this.list = byId("feed");
    this.waiting = [];
    this.missed = 0;
    this.held = this.isDue = false;
    for (const id of ["kind-call", "kind-signal", "kind-log", "level", "words"]) {
      for (const event of ["input", "change"]) byId(id).addEventListener(event, () => this.filter());
    }
    byId("clear").addEventListener("click", () => { this.list.replaceChildren(); this.missed = 0; this.count(); });
    byId("hold").addEventListener("click", (event) => {
      this.held = !this.held;
      event.target.setAttribute("aria-pressed", this.held);
      event.target.textContent = this.held ? "Go on" : "Hold";
      this.flush();
    });
  }

  replace(lines) {
    this.list.replaceChildren();
    this.waiting = [];
    this.missed = 0;
    this.add(lines, 0);
  }

  add(lines, dropped) {
    this.missed += dropped;
    this.waiting.push(...lines);
    if (this.waiting.length > MOST_ROWS) this.missed += this.waiting.splice(0, this.waiting.length - MOST_ROWS).length;
    if (!this.isDue) requestAnimationFrame(() => this.flush()); // as often as it can be seen
    this.isDue = true;
  }

  flush() {
    this.isDue = false;
    if (!this.held && this.waiting.length) {
      const atEnd = this.list.scrollTop + this.list.clientHeight >= this.list.scrollHeight - 30;
      const rows = this.waiting.map(row);
      this.waiting = [];
      for (const one of rows) one.hidden = !this.fits(one);
      this.list.append(...rows);
      while (this.list.children.length > MOST_ROWS) this.list.firstChild.remove();
      if (atEnd) this.list.scrollTop = this.list.scrollHeight;
    }
    this.count();
  }

  fits({ line, words }) {
    if (!byId(`kind-${line.kind}`).checked || (line.kind === "log" && line.level > byId("level").value)) return false;
    return byId("words").value.toLowerCase().split(/[\s,]+/).every((word) => words.includes(word));
  }

  filter() {
    for (const one of this.list.children) one.hidden = !this.fits(one);
    this.list.scrollTop = this.list.scrollHeight;
    this.count();
  }

  count() {
    const waiting = this.held ? `${this.waiting.length} more are waiting. ` : "";
    const missed = this.missed ? `${this.missed} came too fast to be shown.` : "";
    byId("feed-count").textContent = waiting + missed;
  }
}
