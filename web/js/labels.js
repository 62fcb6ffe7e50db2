// The person's labels ({label_id, name, color}): every one from the Label
// API's "list", and those met on items since (each item carries the caller's
// labels). A chip shows a label with a dot in its colour.
import { h } from "./dom.js";
import { call } from "./api.js";

const labels = new Map();

export function rememberLabels(items) {
  for (const item of items) {
    for (const label of item.labels || []) labels.set(label.label_id, label);
  }
}

export function knownLabels() {
  return [...labels.values()].sort((a, b) => a.name.localeCompare(b.name));
}

// Every label of the person, read again from the server.
export async function loadLabels() {
  const data = await call("list", {}, { api: "ZEMO.ZemoraOrvel.Label" });
  labels.clear();
  for (const label of data.labels || []) labels.set(label.label_id, label);
  return knownLabels();
}

// Colours come from the server as "#rrggbb"; anything else is left out.
// They are set through CSSOM, which the page's policy allows.
export function labelChip(label, ...extra) {
  const dot = h("span.label-dot", { "aria-hidden": "true" });
  if (/^#[0-9a-fA-F]{6}$/.test(label.color || "")) dot.style.backgroundColor = label.color;
  return h("span.label-chip", { dataset: { labelId: label.label_id }, title: label.name },
    dot, label.name, ...extra);
}
