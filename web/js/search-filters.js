// The filters of a search: type, modification date (from, to), size (at
// least, at most), owner and labels. They live in the query of the search
// route ("#/search/word?type=text&max=10&unit=KB"), so a reload or a link
// keeps them; criteria() turns that query into the Files "search" criteria.
import { h, clear } from "./dom.js";
import { knownLabels } from "./labels.js";

export const FILE_TYPES = [["", "Any type"], ["dir", "Folders"], ["file", "Files"],
  ["document", "Documents"], ["image", "Images"], ["video", "Videos"], ["audio", "Audio"],
  ["pdf", "PDF"], ["archive", "Archives"], ["text", "Text"]];
const OWNERS = [["", "Anyone"], ["me", "Me"], ["others", "Others"], ["custom", "A user…"]];
const UNITS = { KB: 1024, MB: 1024 ** 2, GB: 1024 ** 3 };
const KEYS = ["type", "from", "to", "min", "max", "unit", "owner", "user", "label"];

// A day "yyyy-mm-dd" as seconds: its first (local midnight) or last second.
function daySeconds(day, last) {
  const t = new Date(day + (last ? "T23:59:59" : "T00:00:00")).getTime();
  return Number.isFinite(t) ? Math.floor(t / 1000) : undefined;
}

function bytes(value, unit) {
  const n = Number(value);
  return value !== "" && value !== null && Number.isFinite(n) && n >= 0
    ? Math.round(n * (UNITS[unit] || UNITS.KB)) : undefined;
}

// The route's query (URLSearchParams) as Files "search" parameters.
export function criteria(params) {
  const out = {};
  const get = (key) => params.get(key) || "";
  if (get("type")) out.file_type = get("type");
  const start = get("from") ? daySeconds(get("from"), false) : undefined;
  const end = get("to") ? daySeconds(get("to"), true) : undefined;
  if (start !== undefined || end !== undefined) {
    out.time = "custom";
    if (start !== undefined) out.start_date = start;
    if (end !== undefined) out.end_date = end;
  }
  const min = bytes(get("min"), get("unit"));
  const max = bytes(get("max"), get("unit"));
  if (min) out.min_size = min;
  if (max) out.max_size = max;
  if (get("owner") === "custom") {
    if (get("user")) out.custom_owner = { name: get("user") };
  } else if (get("owner")) {
    out.owner = get("owner");
  }
  const labels = params.getAll("label").filter(Boolean);
  if (labels.length) out.labels = labels;
  return out;
}

export function hasFilters(params) {
  return KEYS.some((key) => key !== "unit" && params.getAll(key).some(Boolean));
}

function field(label, control) {
  return h("label.filter-field", {}, h("span.filter-label", {}, label), control);
}

function select(id, label, options) {
  return h("select", { id, name: id, "aria-label": label },
    options.map(([value, text]) => h("option", { value }, text)));
}

// The filter form, inside a <details> so it folds away on a small screen.
export class SearchFilters {
  constructor(onApply) {
    this.type = select("filter-type", "Type", FILE_TYPES);
    this.from = h("input", { type: "date", id: "filter-from" });
    this.to = h("input", { type: "date", id: "filter-to" });
    this.min = h("input", { type: "number", id: "filter-min-size", min: "0", step: "any", inputmode: "decimal" });
    this.max = h("input", { type: "number", id: "filter-max-size", min: "0", step: "any", inputmode: "decimal" });
    this.unit = select("filter-size-unit", "Size unit", Object.keys(UNITS).map((u) => [u, u]));
    this.owner = select("filter-owner", "Owner", OWNERS);
    this.user = h("input", { id: "filter-owner-name", "aria-label": "Owner's user name",
      placeholder: "User name", hidden: true, autocomplete: "off" });
    this.owner.addEventListener("change", () => { this.user.hidden = this.owner.value !== "custom"; });
    this.labels = h("fieldset.filter-labels", { id: "filter-labels" });
    this.error = h("p.form-error", { id: "filter-error", role: "alert" });
    const form = h("form.filter-form", { id: "search-filters-form", "aria-label": "Search filters" },
      field("Type", this.type),
      h("fieldset.filter-group", {}, h("legend", {}, "Modified"),
        field("From", this.from), field("To", this.to)),
      h("fieldset.filter-group", {}, h("legend", {}, "Size"),
        field("At least", this.min), field("At most", this.max), this.unit),
      h("fieldset.filter-group", {}, h("legend", {}, "Owner"), this.owner, this.user),
      this.labels, this.error,
      h("div.filter-buttons", {},
        h("button.primary", { type: "submit", id: "filter-apply" }, "Apply filters"),
        h("button", { type: "button", id: "filter-clear", onclick: () => { form.reset();
          this.user.hidden = true; this.error.textContent = ""; onApply(new URLSearchParams()); } },
        "Clear filters")));
    form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.error.textContent = this.problem();
      if (!this.error.textContent) onApply(this.query());
    });
    this.summary = h("summary", { id: "search-filters-toggle" }, "Filters");
    this.element = h("details.search-filters", { id: "search-filters" }, this.summary, form);
  }

  // A sentence for ranges that can match nothing, "" when the form is fine.
  problem() {
    if (this.from.value && this.to.value && this.from.value > this.to.value) {
      return "The \"from\" date is after the \"to\" date.";
    }
    const min = Number(this.min.value), max = Number(this.max.value);
    if (this.min.value && this.max.value && min > max) return "The smallest size is over the largest size.";
    if (this.owner.value === "custom" && !this.user.value.trim()) return "Type the owner's user name.";
    return "";
  }

  // The form's values as the route's query (empty values left out).
  query() {
    const q = new URLSearchParams();
    const put = (key, value) => { if (value) q.append(key, value); };
    put("type", this.type.value);
    put("from", this.from.value);
    put("to", this.to.value);
    put("min", this.min.value);
    put("max", this.max.value);
    if (this.min.value || this.max.value) put("unit", this.unit.value);
    put("owner", this.owner.value);
    if (this.owner.value === "custom") put("user", this.user.value.trim());
    for (const box of this.labels.querySelectorAll("input:checked")) put("label", box.value);
    return q;
  }

  // Fills the form from the route's query; open when a filter is set.
  set(params, labels = knownLabels()) {
    this.type.value = params.get("type") || "";
    this.from.value = params.get("from") || "";
    this.to.value = params.get("to") || "";
    this.min.value = params.get("min") || "";
    this.max.value = params.get("max") || "";
    this.unit.value = UNITS[params.get("unit")] ? params.get("unit") : "KB";
    this.owner.value = params.get("owner") || "";
    this.user.value = params.get("user") || "";
    this.user.hidden = this.owner.value !== "custom";
    this.renderLabels(labels, new Set(params.getAll("label")));
    if (hasFilters(params)) this.element.open = true;
    this.summary.textContent = hasFilters(params) ? "Filters (on)" : "Filters";
  }

  renderLabels(labels, chosen) {
    clear(this.labels).append(h("legend", {}, "Labels"));
    if (!labels.length) this.labels.append(h("span.filter-none", {}, "No labels yet"));
    for (const label of labels) {
      this.labels.append(h("label.check", {}, h("input", { type: "checkbox", name: "label",
        value: label.label_id, checked: chosen.has(label.label_id) }), label.name));
    }
  }
}
