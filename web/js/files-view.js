// "My files": the toolbar, breadcrumbs and the virtualised listing of one
// folder, with mouse and keyboard selection. Actions live in actions.js.
import { h, clear, toast } from "./dom.js";
import { call } from "./api.js";
import { go, filesHash } from "./router.js";
import { PagedSource } from "./paged.js";
import { VirtualList } from "./vlist.js";
import { Selection } from "./selection.js";
import { renderRow } from "./rows.js";
import { collectDrop } from "./upload.js";
import { Actions } from "./actions.js";
import { rememberLabels } from "./labels.js";
import { requestAccess } from "./preview.js";

// The type filter: the server filters folders and files by type, the rest
// by extension.
export const TYPE_FILTERS = {
  all: { label: "All items" },
  dir: { label: "Folders", filter: { type: ["dir"] } },
  file: { label: "Files", filter: { type: ["file"] } },
  image: { label: "Images", filter: { extensions: ["jpg", "jpeg", "png", "gif", "webp", "tif", "tiff", "heic", "heif", "avif", "svg"] } },
  document: { label: "Documents", filter: { extensions: ["pdf", "doc", "docx", "odt", "xls", "xlsx", "ods", "ppt", "pptx", "odp", "rtf"] } },
  text: { label: "Text", filter: { extensions: ["txt", "md", "csv", "json", "log"] } },
};

const PREFS_KEY = "zemo.view";

export class FilesView {
  constructor(uploader) {
    const prefs = JSON.parse(localStorage.getItem(PREFS_KEY) || "{}");
    this.path = "/mydrive";
    this.sortBy = prefs.sortBy || "name";
    this.sortDirection = prefs.sortDirection || "asc";
    this.grid = !!prefs.grid;
    this.type = "all";
    this.uploader = uploader;
    this.selection = new Selection();
    this.source = new PagedSource((offset, limit) => this.fetchPage(offset, limit),
      () => this.onData(), (err) => this.showError(err));
    this.list = new VirtualList({ label: "Files", source: this.source,
      renderRow: (el, item, i) => renderRow(el, item, i, this), afterRender: () => this.afterRender() });
    this.actions = new Actions(this);
    this.build();
  }

  savePrefs() {
    localStorage.setItem(PREFS_KEY, JSON.stringify({ sortBy: this.sortBy,
      sortDirection: this.sortDirection, grid: this.grid }));
  }

  fetchPage(offset, limit) {
    // "#/files/id:<file id>" names an item by id, which the server takes
    // without the leading slash.
    const path = /^\/(id|link):/.test(this.path) ? this.path.slice(1) : this.path;
    const params = { path, offset, limit, sort_by: this.sortBy, sort_direction: this.sortDirection };
    const filter = TYPE_FILTERS[this.type].filter;
    if (filter) params.filter = filter;
    return call("list", params).then((data) => { rememberLabels(data.items || []); return data; });
  }

  build() {
    this.crumbs = h("nav.breadcrumbs", { "aria-label": "Folder path", id: "breadcrumbs" });
    this.status = h("p.list-status", { id: "list-status", role: "status" });
    const sort = h("select", { id: "sort-select", "aria-label": "Sort by",
      onchange: (e) => { [this.sortBy, this.sortDirection] = e.target.value.split(":"); this.savePrefs(); this.reload(); } },
    [["name:asc", "Name A-Z"], ["name:desc", "Name Z-A"], ["size:desc", "Largest first"],
      ["size:asc", "Smallest first"], ["modified_time:desc", "Newest first"], ["modified_time:asc", "Oldest first"]]
      .map(([value, label]) => h("option", { value }, label)));
    sort.value = `${this.sortBy}:${this.sortDirection}`;
    const type = h("select", { id: "type-filter", "aria-label": "Show",
      onchange: (e) => { this.type = e.target.value; this.reload(); } },
    Object.entries(TYPE_FILTERS).map(([value, f]) => h("option", { value }, f.label)));
    this.viewToggle = h("button", { type: "button", id: "view-toggle", "aria-pressed": String(this.grid),
      onclick: () => this.setGrid(!this.grid) }, "Grid view");
    this.toolbar = h("div.toolbar", { role: "toolbar", "aria-label": "File actions" },
      this.actions.buttons(), h("span.toolbar-gap"), type, sort, this.viewToggle);
    this.list.setGrid(this.grid);
    this.bindList();
    this.element = h("section.files-view", { "aria-label": "My files" },
      this.toolbar, this.crumbs, this.status, this.list.viewport);
    this.bindDrop();
  }

  setGrid(grid) {
    this.grid = grid;
    this.viewToggle.setAttribute("aria-pressed", String(grid));
    this.savePrefs();
    this.list.setGrid(grid);
  }

  show(path) {
    if (path === this.path && this.source.total >= 0) return;
    this.path = path;
    this.renderCrumbs();
    this.reload();
    document.title = (path === "/mydrive" ? "My files" : path.split("/").pop()) + " - ZemoraOrvel";
  }

  reload() {
    this.selection.reset();
    this.source.reset();
    this.list.viewport.scrollTop = 0;
    this.list.clearRows();
    this.status.textContent = "Loading…";
    this.list.schedule();
    this.actions.update();
  }

  // After a change: the same folder again, keeping the scroll position.
  refresh() {
    this.selection.reset();
    this.source.reset();
    this.status.textContent = "Loading…";
    this.list.schedule();
    this.actions.update();
  }

  renderCrumbs() {
    clear(this.crumbs);
    const parts = this.path.split("/").filter(Boolean);
    const ol = h("ol");
    parts.forEach((part, i) => {
      const target = "/" + parts.slice(0, i + 1).join("/");
      const text = i === 0 ? "My files" : part;
      ol.append(h("li", {}, i === parts.length - 1
        ? h("span", { "aria-current": "page" }, text)
        : h("a", { href: filesHash(target) }, text)));
    });
    this.crumbs.append(ol);
  }

  onData() {
    const total = this.source.total;
    this.status.textContent = total === 0 ? "This folder is empty." :
      `${total.toLocaleString()} item${total === 1 ? "" : "s"}`;
    this.list.schedule();
  }

  showError(err) {
    this.status.textContent = err.message;
    if (err.code === 1006) this.offerAccessRequest();
    if (!err.sessionLost) toast(err.message, "error");
  }

  // Another user's item (by "id:" or "link:") refused: its owner can be asked.
  offerAccessRequest() {
    const ref = this.path.replace(/^\//, "").split("/")[0];
    if (!/^(id|link):/.test(ref)) return;
    // A listing refused again (another page of it) shows the same button.
    if (this.accessButton && this.accessButton.dataset.ref === ref) {
      this.status.append(" ", this.accessButton);
      return;
    }
    const ask = h("button", { type: "button", id: "request-access", dataset: { ref }, onclick: async () => {
      ask.disabled = true;
      try {
        await requestAccess(ref);
        // The button keeps saying so: the listing may be refused again.
        ask.textContent = "Access requested";
        toast("Access requested: the owner will see your request.");
      } catch (err) {
        ask.disabled = false;
        toast(err.message, "error");
      }
    } }, "Request access");
    this.accessButton = ask;
    this.status.append(" ", ask);
  }

  afterRender() {
    const focus = this.selection.focus;
    if (focus >= 0 && this.list.rows.has(focus)) {
      this.list.viewport.setAttribute("aria-activedescendant", "row-" + focus);
    } else {
      this.list.viewport.removeAttribute("aria-activedescendant");
    }
  }

  item(index) { return this.source.get(index); }

  selectedItems() { return this.source.pathsAt(this.selection.indexes(this.source.total)); }

  open(item) {
    if (!item) return;
    if (item.type === "dir") go(filesHash(item.path));
    else this.actions.downloadItems([item]);
  }

  changed() {
    this.list.refresh();
    this.afterRender();
    this.actions.update();
  }

  bindList() {
    const vp = this.list.viewport;
    const indexOf = (event) => {
      const row = event.target.closest(".vrow");
      return row ? Number(row.dataset.index) : -1;
    };
    vp.addEventListener("click", (event) => {
      const i = indexOf(event);
      if (i < 0) return;
      const path = this.item(i) && this.item(i).path;
      if (event.shiftKey) this.selection.range(i, (k) => this.item(k) && this.item(k).path);
      else if (event.ctrlKey || event.metaKey) this.selection.toggle(i, path);
      else this.selection.only(i, path);
      vp.focus();
      this.changed();
    });
    vp.addEventListener("dblclick", (event) => this.open(this.item(indexOf(event))));
    vp.addEventListener("keydown", (event) => this.onKey(event));
  }

  onKey(event) {
    const total = Math.max(this.source.total, 0);
    const sel = this.selection;
    const { columns } = this.list.metrics();
    const pathAt = (k) => this.item(k) && this.item(k).path;
    const step = { ArrowDown: columns, ArrowUp: -columns, ArrowRight: this.grid ? 1 : 0,
      ArrowLeft: this.grid ? -1 : 0, PageDown: 10 * columns, PageUp: -10 * columns,
      Home: -Infinity, End: Infinity }[event.key];
    if (step !== undefined && step !== 0 && total > 0) {
      event.preventDefault();
      const next = Math.min(total - 1, Math.max(0, (sel.focus < 0 ? -1 : sel.focus) + step));
      if (event.shiftKey) sel.range(next, pathAt);
      else if (event.ctrlKey) sel.focus = next;
      else sel.only(next, pathAt(next));
      this.list.reveal(next);
      this.changed();
      return;
    }
    const key = event.key;
    if ((event.ctrlKey || event.metaKey) && key.toLowerCase() === "a") {
      event.preventDefault();
      sel.selectAll();
      this.changed();
    } else if (key === " " && sel.focus >= 0) {
      event.preventDefault();
      if (event.ctrlKey) sel.toggle(sel.focus, pathAt(sel.focus));
      else sel.only(sel.focus, pathAt(sel.focus));
      this.changed();
    } else if (key === "Enter" && sel.focus >= 0) {
      event.preventDefault();
      this.open(this.item(sel.focus));
    } else if (key === "Delete") {
      event.preventDefault();
      this.actions.remove();
    } else if (key === "F2") {
      event.preventDefault();
      this.actions.rename();
    } else if (key === "Backspace" && this.path !== "/mydrive") {
      event.preventDefault();
      go(filesHash(this.path.replace(/\/[^/]+$/, "")));
    }
  }

  bindDrop() {
    const zone = this.element;
    zone.addEventListener("dragover", (event) => {
      if (![...event.dataTransfer.types].includes("Files")) return;
      event.preventDefault();
      zone.classList.add("dropping");
    });
    zone.addEventListener("dragleave", (event) => {
      if (!zone.contains(event.relatedTarget)) zone.classList.remove("dropping");
    });
    zone.addEventListener("drop", async (event) => {
      event.preventDefault();
      zone.classList.remove("dropping");
      const folder = this.path;
      try {
        const entries = await collectDrop(event.dataTransfer, folder);
        this.uploader.add(entries);
        this.refresh();
      } catch (err) {
        toast("Cannot read the dropped items: " + err.message, "error");
      }
    });
  }
}
