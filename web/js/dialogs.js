// Modal dialogs on <dialog>: ask for a name, confirm, choose what to do with
// a taken name, pick a folder. Each returns a promise of the answer (null
// when cancelled).
import { h, clear } from "./dom.js";
import { call } from "./api.js";

function open(title, body, buttons, id) {
  return new Promise((resolve) => {
    const titleId = id + "-title";
    const dialog = h("dialog.dialog", { id, "aria-labelledby": titleId });
    const form = h("form", { method: "dialog" }, h("h2", { id: titleId }, title), body,
      h("div.dialog-buttons", {}, buttons.map((b) =>
        h("button" + (b.primary ? ".primary" : ""), { type: b.submit ? "submit" : "button",
          value: b.value, id: id + "-" + b.value,
          onclick: b.submit ? null : () => { dialog.returnValue = b.value; dialog.close(); } },
        b.label))));
    dialog.append(form);
    form.addEventListener("submit", (event) => {
      event.preventDefault();
      dialog.returnValue = event.submitter ? event.submitter.value : "ok";
      dialog.close();
    });
    dialog.addEventListener("close", () => {
      dialog.remove();
      resolve(dialog.returnValue || "cancel");
    });
    document.body.append(dialog);
    dialog.showModal();
  });
}

export async function askName(title, initial, okLabel) {
  const input = h("input", { id: "name-input", value: initial, required: true,
    "aria-label": "Name", autocomplete: "off" });
  const done = open(title, h("div", {}, input),
    [{ label: "Cancel", value: "cancel" }, { label: okLabel, value: "ok", primary: true, submit: true }],
    "name-dialog");
  input.focus();
  const dot = initial.lastIndexOf(".");
  input.setSelectionRange(0, dot > 0 ? dot : initial.length);
  return (await done) === "ok" ? input.value.trim() : null;
}

export async function confirmAction(title, text, okLabel) {
  return (await open(title, h("p", {}, text),
    [{ label: "Cancel", value: "cancel" }, { label: okLabel, value: "ok", primary: true, submit: true }],
    "confirm-dialog")) === "ok";
}

// A name is taken: "skip", "replace" or "keep" (both), and whether the answer
// holds for the rest of the batch.
export async function askConflict(name) {
  const all = h("input", { type: "checkbox", id: "conflict-all" });
  const choice = await open("Name already taken",
    h("div", {}, h("p", {}, `"${name}" already exists in this folder.`),
      h("label.check", { for: "conflict-all" }, all, " Do the same for the other files")),
    [{ label: "Skip", value: "skip" }, { label: "Replace", value: "replace" },
      { label: "Keep both", value: "keep", primary: true }], "conflict-dialog");
  return { choice: choice === "cancel" ? "skip" : choice, forAll: all.checked };
}

// Browses folders from /mydrive and answers the chosen folder's path.
export async function pickFolder(title, start, okLabel) {
  let current = start || "/mydrive";
  const crumbs = h("nav.picker-crumbs", { "aria-label": "Picker location" });
  const list = h("ul.picker-list", { role: "listbox", "aria-label": "Folders", id: "picker-list" });
  const status = h("p.picker-status", { role: "status" });
  async function show(path) {
    current = path;
    clear(crumbs);
    const parts = path.split("/").filter(Boolean);
    parts.forEach((part, i) => {
      const target = "/" + parts.slice(0, i + 1).join("/");
      const text = i === 0 ? "My files" : part;
      crumbs.append(i === parts.length - 1 ? h("span", { "aria-current": "location" }, text)
        : h("button.link", { type: "button", onclick: () => show(target) }, text),
      i < parts.length - 1 ? " / " : "");
    });
    clear(list);
    status.textContent = "Loading…";
    try {
      const data = await call("list", { path, limit: 1000, sort_by: "name",
        filter: { type: ["dir"] } });
      status.textContent = data.items.length ? "" : "No folders here.";
      for (const item of data.items) {
        list.append(h("li", {}, h("button.picker-folder", { type: "button", role: "option",
          "data-path": item.path, onclick: () => show(item.path) }, item.name)));
      }
      if (data.total > data.items.length) status.textContent = `Showing 1,000 of ${data.total} folders.`;
    } catch (err) {
      status.textContent = err.message;
    }
  }
  const done = open(title, h("div.picker", {}, crumbs, list, status),
    [{ label: "Cancel", value: "cancel" }, { label: okLabel, value: "ok", primary: true, submit: true }],
    "picker-dialog");
  show(current);
  return (await done) === "ok" ? current : null;
}
