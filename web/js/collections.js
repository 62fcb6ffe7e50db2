// The person's collections beside the folders, each a module of the side
// navigation: Starred, Recent, Shared with me, Shared with others, Labels (a
// chip per label in its colour, then the label's items) and Backups (the
// target folders of the backup tasks; version 3 of the API). A folder opens in the file list, a
// file in the preview (a download when it has none).
import { h, clear, formatTime, formatSize } from "./dom.js";
import { call } from "./api.js";
import { addModule } from "./modules.js";
import { go, filesHash } from "./router.js";
import { openPreview } from "./preview.js";
import { download } from "./download.js";
import { rememberLabels, knownLabels, loadLabels, labelChip } from "./labels.js";

const PAGE = 200;

function parentOf(path) { return (path || "").replace(/\/[^/]*$/, "") || "/"; }

export function openItem(item) {
  if (item.type === "dir") return go(filesHash(item.path));
  return openPreview(item).then((shown) => { if (!shown) download([item]); });
}

class ItemTable {
  constructor(id, title, fetchPage, empty) {
    this.fetchPage = fetchPage;
    this.emptyText = empty;
    this.body = h("tbody", { id: id + "-rows" });
    this.status = h("p.list-status", { id: id + "-status", role: "status" });
    this.more = h("button", { type: "button", id: id + "-more", hidden: true,
      onclick: () => this.load(this.count) }, "Show more");
    this.head = h("div.toolbar", {}, h("h1.view-title", { id: id + "-title" }, title));
    this.element = h("div.collection-view", { id: id + "-view" }, this.head,
      h("table.item-table", { "aria-label": title },
        h("thead", {}, h("tr", {}, ["Name", "Folder", "Labels", "Modified", "Size"].map((t) =>
          h("th", { scope: "col" }, t)))), this.body),
      this.more, this.status);
    this.count = 0;
  }

  async load(offset = 0) {
    if (offset === 0) { this.count = 0; clear(this.body); }
    this.status.textContent = "Loading…";
    try {
      const data = await this.fetchPage(offset, PAGE);
      const items = data.items || [];
      rememberLabels(items);
      for (const item of items) this.body.append(this.row(item));
      this.count += items.length;
      const total = Number(data.total ?? this.count);
      this.more.hidden = this.count >= total || items.length === 0;
      this.status.textContent = total === 0 ? this.emptyText : `${total} item${total === 1 ? "" : "s"}`;
    } catch (err) {
      this.status.textContent = err.message;
    }
  }

  row(item) {
    const open = h("a.item-open", { href: item.type === "dir" ? filesHash(item.path) : "#",
      onclick: (event) => { if (item.type !== "dir") { event.preventDefault(); openItem(item); } } },
    (item.type === "dir" ? "📁 " : "") + item.name);
    return h("tr.collection-row", { dataset: { name: item.name, path: item.path || "" } },
      h("td", {}, open, item.starred ? h("span.star", { "aria-label": "starred" }, " ★") : null),
      h("td.collection-folder", {}, parentOf(item.display_path || item.path)),
      h("td.collection-labels", {}, (item.labels || []).map((l) => labelChip(l))),
      h("td", {}, formatTime(item.modified_time)),
      h("td", {}, item.type === "dir" ? "" : formatSize(item.size)));
  }
}

function listing(method, extra = {}) {
  return (offset, limit) => call(method, { offset, limit, sort_by: "modified_time",
    sort_direction: "desc", ...extra });
}

function simpleModule(name, label, method, empty) {
  let table = null;
  addModule({
    name, label,
    render(container) {
      if (!table) table = new ItemTable(name, label, listing(method), empty);
      container.append(table.element);
      table.load();
    },
  });
}

simpleModule("starred", "Starred", "list_starred", "Nothing is starred yet.");
// "recent" answers the newest items at once (no offset).
{
  let table = null;
  addModule({
    name: "recent", label: "Recent",
    render(container) {
      if (!table) table = new ItemTable("recent", "Recent", (offset) =>
        offset ? Promise.resolve({ items: [], total: table.count }) : call("recent", { limit: PAGE }),
      "Nothing used lately.");
      container.append(table.element);
      table.load();
    },
  });
}
simpleModule("shared-with-me", "Shared with me", "shared_with_me", "Nobody shares anything with you yet.");
simpleModule("shared-with-others", "Shared with others", "shared_with_others", "You share nothing yet.");

// #/labels lists the person's labels (the Label API); #/labels/<id> one
// label's items.
class LabelsView {
  constructor() {
    this.chips = h("div.label-chips", { id: "label-chips", role: "list" });
    this.element = h("div", {}, this.chips);
  }

  async show(container, labelId) {
    container.append(this.element);
    let all;
    try {
      all = await loadLabels();
    } catch (err) {
      clear(this.chips).append(h("p.list-status", { role: "status" }, err.message));
      return;
    }
    clear(this.chips);
    for (const label of all) {
      const chip = labelChip(label);
      chip.setAttribute("role", "listitem");
      this.chips.append(h("a.label-link", { href: "#/labels/" + encodeURIComponent(label.label_id),
        "aria-current": label.label_id === labelId ? "page" : null }, chip));
    }
    if (!all.length) this.chips.append(h("p.list-status", {}, "No labels yet."));
    if (this.table) this.table.element.remove();
    if (!labelId) return;
    const label = knownLabels().find((l) => l.label_id === labelId);
    this.table = new ItemTable("labelled", "Label: " + (label ? label.name : labelId),
      listing("list_labelled", { label_id: labelId }), "No items carry this label.");
    this.element.append(this.table.element);
    this.table.load();
  }
}

let labels = null;
addModule({
  name: "labels", label: "Labels",
  render(container, route) {
    if (!labels) labels = new LabelsView();
    labels.show(container, route.rest[0] || "");
  },
});

{
  const body = h("tbody", { id: "backups-rows" });
  const status = h("p.list-status", { id: "backups-status", role: "status" });
  const element = h("div.collection-view", { id: "backups-view" },
    h("div.toolbar", {}, h("h1.view-title", {}, "Backups")),
    h("table.item-table", { "aria-label": "Backup folders" },
      h("thead", {}, h("tr", {}, ["Folder", "Modified"].map((t) => h("th", { scope: "col" }, t)))), body),
    status);
  addModule({
    name: "backups", label: "Backups",
    async render(container) {
      container.append(element);
      status.textContent = "Loading…";
      try {
        const data = await call("list_backup_tasks", { sort_by: "name", sort_direction: "asc" }, { version: 3 });
        clear(body);
        for (const item of data.items || []) {
          body.append(h("tr.backup-row", { dataset: { name: item.name } },
            h("td", {}, h("a", { href: filesHash(item.path) }, "📁 " + item.name)),
            h("td", {}, formatTime(item.modified_time))));
        }
        status.textContent = data.total ? "" : "No backup tasks.";
      } catch (err) {
        status.textContent = err.message;
      }
    },
  });
}
