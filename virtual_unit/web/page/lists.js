// What there are several of: LEDs, recordings, storage devices, daemons, faults, media, scenarios.

import { fill, lookUp, render, state } from "./bind.js";
import { bytes, fileName } from "./format.js";

const byId = (id) => document.getElementById(id);
const LEDS = { 0: "Microphone", 3: "Sonde" };
const KINDS = { video: ["Video", "Video"], photoTalk: ["PhotoTalk", "PhotoTalk"], autolog: ["AutoLog", "AutoLog"] };

// Fills a list anew when what it is made of has changed, so that nobody loses the focus for nothing.
const made = new Map();
function list(id, items, make, keep = 0) {
  const key = JSON.stringify(items);
  if (made.get(id) === key) return;
  made.set(id, key);
  const place = byId(id), focused = document.activeElement?.dataset?.order;
  place.replaceChildren(...[...place.children].slice(0, keep), ...items.map(make));
  render(place);
  if (focused && document.activeElement === document.body) place.querySelector(`[data-order="${CSS.escape(focused)}"]`)?.focus();
}

function media(item) {
  const file = fileName(item.Path), size = item.Size ? bytes(item.Size) : "";
  if (item.Type === "snapshot") return fill("picture", { id: encodeURIComponent(item.Id), file, size });
  const film = fill("film", { file, size: size && `, ${size}`, type: item.Type });
  film.querySelector(".play").dataset.order = `call VideoPlaybackStart {job.Media.${lookUp("job.Media").indexOf(item)}.Path} 1.0`;
  return film;
}

function fault([id, sibling, member, kind, left, met, value]) {
  const rest = `${value ? value + ", " : ""}${left ? `${left} × more, ` : ""}met ${met} ×`;
  return fill("fault-row", { id, sibling, member, kind, rest });
}

export const LISTS = {
  front: () => {
    const numbers = [...new Set([...Object.keys(LEDS), ...Object.keys(state.front.Leds)])].sort((a, b) => a - b);
    list("leds", numbers, (number) => fill("led", { number, name: LEDS[number] ?? `LED ${number}` }));
  },
  recording: () => list("recordings", Object.keys(state.recording.Recordings), (kind) =>
    fill("recording", { kind, name: KINDS[kind][0], member: KINDS[kind][1] })),
  storage: () => list("slots", [...new Set(["card", "internal", ...Object.keys(state.storage.Devices)])], (device) =>
    fill("slot", { device })),
  sibling: () => list("siblings", Object.keys(state.sibling.States), (name) => fill("sibling", { name }), 1),
  fault: () => list("faults", state.fault.Faults, fault),
  job: () => list("media", [...state.job.Media].reverse(), media),
  scenario: () => {
    const lines = byId("scenario-lines");
    lines.textContent = state.scenario.Lines.join("\n").trim();
    lines.scrollTop = lines.scrollHeight;
  },
  controller: () => options(byId("sounds"), state.controller.AudioFiles ?? []),
};

export function options(select, names) {
  if ([...select.options].map((option) => option.value).join("\n") === names.join("\n")) return;
  const { value } = select;
  select.replaceChildren(...names.map((name) => new Option(name, name)));
  if (names.includes(value)) select.value = value;
}

function choices(datalist, names) {
  datalist.replaceChildren(...names.map((name) => new Option(name, name)));
}

// What the unit says of itself once, and the forms that depend on it.
export function greet(hello) {
  const form = byId("fault");
  options(form.sibling, Object.keys(hello.siblings));
  options(form.kind, hello.faults);
  const members = () => choices(byId("members"), ["any", ...hello.siblings[form.sibling.value]]);
  form.sibling.onchange = () => { form.member.value = "any"; members(); };
  members();
  choices(byId("keys"), hello.keys);
  options(byId("zones"), hello.zones);
  list("scenarios", hello.scenarios, (one) => fill("scenario", one));
}

export function settings(give) {
  const form = byId("settings");
  const show = () => { form.value.value = lookUp(`settings.Sections.${form.section.value}.${form.key.value}`) ?? ""; };
  const keys = () => { options(form.key, Object.keys(state.settings.Sections[form.section.value] ?? {}).sort()); show(); };
  form.section.onchange = keys;
  form.key.onchange = show;
  byId("reset-section").onclick = () => give(["do", "settings", "reset", form.section.value]);
  LISTS.settings = () => {
    options(form.section, Object.keys(state.settings.Sections).sort());
    if (!form.contains(document.activeElement)) keys();
  };
}
