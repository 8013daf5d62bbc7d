// Between the state of the unit and what the page's attributes say of it: what elements show, and what they order.

import { FORMATS } from "./format.js";

export const state = {};

export function lookUp(path) {
  return path.split(".").reduce((value, part) => value?.[part], state);
}

// "path", "!path", "path=text" or "path!=text"
function holds(condition) {
  const [, not, path, unlike, text] = condition.match(/^(!?)([^!=]+)(?:(!?)=(.*))?$/);
  const value = lookUp(path);
  if (text !== undefined) return (String(value) === text) !== (unlike === "!");
  return (Array.isArray(value) ? value.length > 0 : Boolean(value)) !== (not === "!");
}

const shown = (element, value) => (element.dataset.as && value !== undefined && value !== null ? FORMATS[element.dataset.as](value) : value ?? "");

function setValue(element, value) {
  if (element.type === "checkbox") {
    element.checked = Boolean(value);
  } else if (element.dataset.held === undefined && !(element.type === "number" && element === document.activeElement)) {
    if (element.dataset.max) element.max = Math.max(lookUp(element.dataset.max) || 0, 1000);
    element.value = shown(element, value);
  }
}

export function render(root = document) {
  for (const element of root.querySelectorAll("[data-text]")) {
    const text = String(element.dataset.as === "device" ? FORMATS.device(lookUp(element.dataset.text))
      : shown(element, lookUp(element.dataset.text)));
    if (element.textContent !== text) element.textContent = text;
  }
  for (const element of root.querySelectorAll("[data-value]")) setValue(element, lookUp(element.dataset.value));
  for (const element of root.querySelectorAll("[data-show]")) element.hidden = !holds(element.dataset.show);
  for (const element of root.querySelectorAll("[data-lit]")) element.classList.toggle("lit", holds(element.dataset.lit));
}

// Elements of a template, with {name} in its attributes and texts replaced.
export function fill(template, values) {
  const copy = document.getElementById(template).content.cloneNode(true);
  const put = (text) => text.replace(/{(\w+)}/g, (whole, name) => values[name] ?? whole);
  for (const element of copy.querySelectorAll("*")) {
    for (const attribute of element.attributes) if (attribute.value.includes("{")) attribute.value = put(attribute.value);
    for (const node of element.childNodes) if (node.nodeType === Node.TEXT_NODE) node.data = put(node.data);
  }
  return copy;
}

// The words of an order, in which each {} stands for a value that may have blanks.
function words(order, value, fields) {
  return order.split(" ").map((word) => word.replace(/{([\w.]*)}/g, (_, name) => (name === "" ? value : fields?.get(name) ?? lookUp(name))));
}

// Has all controls order what they say; `give` gets the words and returns a promise of the answer.
export function takeOrders(give) {
  async function order(element, text, value, fields) {
    element.setAttribute("aria-busy", "true");
    await give(words(text, value, fields));
    element.removeAttribute("aria-busy");
    if (element.dataset.value) setValue(element, lookUp(element.dataset.value)); // it may have been refused
  }

  document.addEventListener("click", (event) => {
    const button = event.target.closest("button[data-order]");
    if (button) order(button, button.dataset.order);
  });
  document.addEventListener("submit", (event) => {
    event.preventDefault();
    const form = event.target;
    if (form.dataset.order) order(form, form.dataset.order, undefined, new FormData(form));
  });
  document.addEventListener("change", (event) => {
    const { dataset, type, checked, value } = event.target;
    if (type === "range" || !dataset || !(dataset.order || dataset.on)) return;
    if (type !== "checkbox") order(event.target, dataset.order, value);
    else if (dataset.on) order(event.target, checked ? dataset.on : dataset.off);
    else order(event.target, dataset.order, checked ? "on" : "off");
  });
  // What is dragged follows, as fast as the unit answers; it holds its value until the last order is answered.
  document.addEventListener("input", async ({ target }) => {
    if (target.type !== "range" || !target.dataset.order || target.dataset.held !== undefined) return;
    target.dataset.held = "";
    let sent;
    while (sent !== target.value) {
      sent = target.value;
      await give(words(target.dataset.order, sent));
    }
    delete target.dataset.held;
    setValue(target, lookUp(target.dataset.value));
  });
}
