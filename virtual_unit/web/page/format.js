// Values of the unit's state as people read them; the names are those of data-as.

// Paths without the unit's own folder, which has another name each time.
let folder = "";
export const setFolder = (path) => { folder = path; };
export const short = (text) => (folder ? text.replaceAll(folder, "…") : text);

export const fileName = (path) => (path ?? "").split("/").pop();

export function clockTime(seconds) {
  const whole = Math.floor(seconds), two = (n) => String(n).padStart(2, "0");
  const hours = Math.floor(whole / 3600);
  return `${hours ? hours + ":" : ""}${two(Math.floor(whole / 60) % 60)}:${two(whole % 60)}`;
}

export function bytes(size) {
  if (size < 1000) return `${size} B`;
  const power = Math.min(Math.floor(Math.log10(size) / 3), 3);
  return `${(size / 1000 ** power).toFixed(1)} ${["", "kB", "MB", "GB"][power]}`;
}

function device(values) {
  if (!values) return "not plugged in";
  const marks = [values.IsMounted ? short(values.MountPoint) : "not mounted"];
  if (values.KnownPrimary) marks.push("primary");
  marks.push(`${bytes(values.FreeSpace)} free`);
  return marks.join(" · ");
}

export const FORMATS = {
  bytes,
  device,
  celsius: (value) => `${value} °C`,
  daemon: (running) => (running ? "daemon runs" : "no daemon"),
  running: (running) => (running ? "runs" : "does not run"),
  degrees: (value) => `${value}°`,
  file: fileName,
  job: (current) => (current?.[1] ? `${current[1]} on ${current[0]}` : "no job"),
  led: (value) => ["off", "on"][value ?? 0] ?? `state ${value}`,
  metres: (value) => `${value.toFixed(2)} m`,
  milliseconds: (value) => clockTime(value / 1000),
  percent: (value) => (value < 0 ? "no mixer" : `${value} %`),
  times: (value) => `${value} ×`,
  zone: (zone) => zone.replace(/^CCU\//, ""),
};
