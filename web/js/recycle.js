// The recycle bin (#/recycle): what the person deleted, newest first, with
// where it was and when. Restore puts items back (asking before it renames
// one whose name is taken), delete and empty remove items for good as tasks
// of the service, followed until they end.
import { h, clear, toast, formatTime, formatSize } from "./dom.js";
import { call, ApiError } from "./api.js";
import { confirmAction } from "./dialogs.js";
import { waitTask } from "./tasks.js";
import { addModule } from "./modules.js";

const RECYCLE_API = { api: "ZEMO.ZemoraOrvel.Recycle" };
const PAGE = 200;

function itemRef(item) { return "id:" + item.file_id; }

class RecycleView {
  constructor() {
    this.status = h("p.list-status", { id: "recycle-status", role: "status" });
    this.body = h("tbody", { id: "recycle-rows" });
    this.emptyButton = h("button", { type: "button", id: "recycle-empty",
      onclick: () => this.emptyBin() }, "Empty recycle bin");
    this.more = h("button", { type: "button", id: "recycle-more", hidden: true,
      onclick: () => this.load(this.items.length) }, "Show more");
    this.element = h("div.recycle-view", {},
      h("div.toolbar", {}, h("h1.view-title", {}, "Recycle bin"), h("span.toolbar-gap"), this.emptyButton),
      h("table.item-table", { "aria-label": "Deleted items" },
        h("thead", {}, h("tr", {}, h("th", { scope: "col" }, "Name"),
          h("th", { scope: "col" }, "Original place"), h("th", { scope: "col" }, "Deleted"),
          h("th", { scope: "col" }, "Size"), h("th", { scope: "col" }, "Actions"))),
        this.body),
      this.more, this.status);
    this.items = [];
  }

  async load(offset = 0) {
    if (offset === 0) { this.items = []; clear(this.body); }
    this.status.textContent = "Loading…";
    try {
      const data = await call("list", { offset, limit: PAGE }, RECYCLE_API);
      for (const item of data.items) { this.items.push(item); this.body.append(this.row(item)); }
      this.more.hidden = this.items.length >= data.total;
      this.emptyButton.disabled = data.total === 0;
      this.status.textContent = data.total === 0 ? "The recycle bin is empty."
        : `${data.total} item${data.total === 1 ? "" : "s"}`;
    } catch (err) {
      this.status.textContent = err.message;
    }
  }

  row(item) {
    const folder = (item.original_path || "").replace(/\/[^/]*$/, "") || "/";
    return h("tr.recycle-row", { dataset: { name: item.name, id: item.file_id } },
      h("td", {}, (item.type === "dir" ? "📁 " : "") + item.name),
      h("td.recycle-origin", {}, folder),
      h("td", {}, formatTime(item.removed_time)),
      h("td", {}, item.type === "dir" ? "" : formatSize(item.size)),
      h("td.row-actions", {},
        h("button.recycle-restore", { type: "button", "aria-label": `Restore ${item.name}`,
          onclick: () => this.restore(item) }, "Restore"),
        h("button.recycle-delete", { type: "button", "aria-label": `Delete ${item.name} for good`,
          onclick: () => this.deleteForGood(item) }, "Delete for good")));
  }

  // "stop" first: a taken name is asked about, then restored as "name (1)".
  async restore(item) {
    let restored;
    try {
      restored = await call("restore", { files: [itemRef(item)], conflict: "stop" }, RECYCLE_API);
    } catch (err) {
      if (!(err instanceof ApiError) || err.code !== 1031) throw err;
      const ok = await confirmAction("Name already taken",
        `"${item.name}" already exists where it was. Restore it under a new name?`, "Restore as copy");
      if (!ok) return;
      restored = await call("restore", { files: [itemRef(item)], conflict: "autorename" }, RECYCLE_API);
    }
    const back = (restored.items && restored.items[0]) || {};
    toast(`Restored "${item.name}" to ${back.path || item.original_path}.`);
    this.load();
  }

  async deleteForGood(item) {
    const ok = await confirmAction("Delete for good",
      `Delete "${item.name}" for good? This cannot be undone.`, "Delete for good");
    if (!ok) return;
    const { task_id: taskId } = await call("delete", { files: [itemRef(item)] }, RECYCLE_API);
    await waitTask(taskId, `Deleting ${item.name}`);
    toast(`Deleted "${item.name}" for good.`);
    this.load();
  }

  async emptyBin() {
    const ok = await confirmAction("Empty recycle bin",
      "Delete everything in the recycle bin for good? This cannot be undone.", "Empty");
    if (!ok) return;
    this.emptyButton.disabled = true;
    this.status.textContent = "Emptying…";
    try {
      const { task_id: taskId } = await call("empty", {}, RECYCLE_API);
      await waitTask(taskId, "Emptying the recycle bin");
      toast("The recycle bin is empty.");
    } finally {
      this.load();
    }
  }
}

let view = null;
addModule({
  name: "recycle",
  label: "Recycle bin",
  render(container) {
    if (!view) view = new RecycleView();
    container.append(view.element);
    view.load();
  },
});
