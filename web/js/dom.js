// Small DOM helpers: every element is built with createElement and every
// piece of data goes in as a text node, never as markup.

// h("button.primary", {type: "button", onclick: fn, "aria-label": "x"}, "text", child)
export function h(tag, props, ...children) {
  const [name, ...classes] = tag.split(".");
  const el = document.createElement(name || "div");
  if (classes.length) el.className = classes.join(" ");
  for (const [key, value] of Object.entries(props || {})) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith("on") && typeof value === "function") {
      el.addEventListener(key.slice(2), value);
    } else if (key === "dataset") {
      Object.assign(el.dataset, value);
    } else if (key in el && key !== "list" && typeof value !== "string") {
      el[key] = value;
    } else {
      el.setAttribute(key, value === true ? "" : String(value));
    }
  }
  append(el, children);
  return el;
}

export function append(el, children) {
  for (const child of children.flat()) {
    if (child === null || child === undefined || child === false) continue;
    el.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return el;
}

export function clear(el) {
  while (el.firstChild) el.removeChild(el.firstChild);
  return el;
}

const units = ["B", "KB", "MB", "GB", "TB"];
export function formatSize(bytes) {
  let n = Number(bytes) || 0;
  let u = 0;
  while (n >= 1024 && u < units.length - 1) { n /= 1024; u++; }
  return (u === 0 ? String(n) : n.toFixed(n < 10 ? 1 : 0)) + " " + units[u];
}

// One formatter for every row: toLocaleString would build one per call.
const timeFormat = new Intl.DateTimeFormat(undefined,
  { year: "numeric", month: "short", day: "numeric", hour: "2-digit", minute: "2-digit" });
export function formatTime(seconds) {
  return seconds ? timeFormat.format(new Date(seconds * 1000)) : "";
}

// A passing message in the status area (role=status, read by screen readers),
// with an optional action button ({id, label, run}) that stays a while longer.
export function toast(text, kind = "info", action = null) {
  const box = document.getElementById("toasts");
  const item = h("div.toast." + kind, { role: kind === "error" ? "alert" : null },
    h("span.toast-text", {}, text),
    action ? h("button.toast-action", { type: "button", id: action.id, onclick: () => {
      item.remove();
      action.run();
    } }, action.label) : null,
    h("button.toast-close", { type: "button", "aria-label": "Dismiss message",
      onclick: () => item.remove() }, "×"));
  box.append(item);
  if (kind !== "error") setTimeout(() => item.remove(), action ? 20000 : 6000);
  return item;
}
