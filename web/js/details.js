// The details of one item (toolbar "Details"): type, size, times, owner and
// path, and its labels: each can be taken off, and a label is put on by name
// (one of the person's labels, offered in a list, or a new one, which the
// service creates grey). Labels change through the Files "label" method; the
// item is read again with "get" afterwards.
import { h, clear, formatSize, formatTime } from "./dom.js";
import { call } from "./api.js";
import { loadLabels, labelChip, rememberLabels } from "./labels.js";

function ownerName(item) {
  const owner = item.owner || {};
  if (owner.display_name && owner.display_name !== owner.name) return `${owner.display_name} (${owner.name})`;
  return owner.name || "";
}

function facts(item) {
  const rows = [
    ["Type", item.type === "dir" ? "Folder" : (item.content_type || "File")],
    ["Size", item.type === "dir" ? "" : formatSize(item.size)],
    ["Modified", formatTime(item.modified_time)],
    ["Created", formatTime(item.created_time)],
    ["Owner", ownerName(item)],
    ["Path", item.display_path || item.path],
  ].filter(([, value]) => value);
  return h("dl.detail-facts", { id: "detail-facts" },
    rows.flatMap(([term, value]) => [h("dt", {}, term), h("dd", { dataset: { fact: term.toLowerCase() } }, value)]));
}

export function openDetails(start, onChanged) {
  let item = start;
  const factsBox = h("div");
  const chips = h("ul.detail-labels", { id: "detail-labels", "aria-label": "Labels of this item" });
  const choices = h("datalist", { id: "detail-label-choices" });
  const name = h("input", { id: "detail-label-name", list: "detail-label-choices", autocomplete: "off",
    "aria-label": "Label name", placeholder: "Label name", maxlength: "64" });
  const status = h("p", { role: "status", id: "detail-status" });

  function render() {
    clear(factsBox).append(facts(item));
    clear(chips);
    for (const label of item.labels || []) {
      chips.append(h("li", {}, labelChip(label, h("button.label-remove", { type: "button",
        "aria-label": `Remove label ${label.name}`, onclick: () => change({ action: "remove",
          label_id: label.label_id }, `Removed label "${label.name}".`) }, "×"))));
    }
    if (!chips.firstChild) chips.append(h("li.filter-none", {}, "No labels"));
  }

  async function offerLabels() {
    const all = await loadLabels();
    const on = new Set((item.labels || []).map((l) => l.label_id));
    clear(choices).append(...all.filter((l) => !on.has(l.label_id)).map((l) => h("option", { value: l.name })));
  }

  async function change(action, done) {
    try {
      await call("label", { files: [item.path], labels: [action] });
      item = await call("get", { path: item.path });
      rememberLabels([item]);
      render();
      status.textContent = done;
      onChanged(item);
      await offerLabels();
    } catch (err) {
      status.textContent = err.message;
    }
  }

  const form = h("form.detail-label-form", { id: "detail-label-form" }, name, choices,
    h("button", { type: "submit", id: "detail-label-add" }, "Add label"));
  form.addEventListener("submit", (event) => {
    event.preventDefault();
    const text = name.value.trim();
    if (!text) return;
    name.value = "";
    change({ action: "add", name: text }, `Added label "${text}".`);
  });

  const dialog = h("dialog.dialog", { id: "details-dialog", "aria-labelledby": "details-title" },
    h("h2", { id: "details-title" }, `Details of "${item.name}"`), factsBox,
    h("h3", {}, "Labels"), chips, form, status,
    h("div.dialog-buttons", {}, h("button", { type: "button", id: "details-close",
      onclick: () => dialog.close() }, "Close")));
  dialog.addEventListener("close", () => dialog.remove());
  document.body.append(dialog);
  render();
  dialog.showModal();
  offerLabels().catch((err) => { status.textContent = err.message; });
}
