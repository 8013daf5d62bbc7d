// Keys are down as long as their buttons are held, with the mouse, a finger or the keyboard.

export function keypad(root, give) {
  const down = new Set();
  const press = (key) => { if (!down.has(key)) { down.add(key); give(["do", "key", "press", key]); } };
  const release = (key) => { if (down.delete(key)) give(["do", "key", "release", key]); };
  const holds = (event) => event.key === "Enter" || event.key === " ";

  for (const button of root.querySelectorAll("[data-key]")) {
    const { key } = button.dataset;
    button.addEventListener("pointerdown", (event) => { if (event.button === 0) { button.setPointerCapture(event.pointerId); press(key); } });
    for (const end of ["pointerup", "pointercancel", "blur"]) button.addEventListener(end, () => release(key));
    button.addEventListener("keydown", (event) => {
      if (!holds(event)) return;
      if (event.repeat) give(["do", "key", "repeat", key]);
      else press(key);
    });
    button.addEventListener("keyup", (event) => { if (holds(event)) release(key); });
    let handled = false; // assistive tools click without either
    for (const begin of ["pointerdown", "keydown"]) button.addEventListener(begin, () => { handled = true; });
    button.addEventListener("click", () => { if (!handled) give(["do", "key", "type", key]); handled = false; });
  }
}

export function showKeys(root, names) {
  for (const button of root.querySelectorAll("[data-key]")) {
    button.classList.toggle("down", names.includes(button.dataset.key.toUpperCase()));
  }
}
