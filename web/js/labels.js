// The person's labels as met on items (each item carries the caller's
// labels: {label_id, name, color}); no call lists them on their own.
const labels = new Map();

export function rememberLabels(items) {
  for (const item of items) {
    for (const label of item.labels || []) labels.set(label.label_id, label);
  }
}

export function knownLabels() {
  return [...labels.values()].sort((a, b) => a.name.localeCompare(b.name));
}

// Every label of the person (for now those met on items).
export async function loadLabels() {
  return knownLabels();
}
