// What the toolbar and the keys do with the selection: new folder, upload,
// download, rename, move, copy, delete (to the recycle bin), star, and the
// dialogs of one item (share, versions, preview, details). Copy,
// move and delete are tasks of the service, followed until they end.
import { h, toast } from "./dom.js";
import { call } from "./api.js";
import { askName, confirmAction, pickFolder } from "./dialogs.js";
import { waitTask } from "./tasks.js";
import { download } from "./download.js";
import { openShareDialog, canShare } from "./share.js";
import { openRevisions } from "./revisions.js";
import { openPreview } from "./preview.js";
import { openDetails } from "./details.js";

function plural(n, word) { return `${n} ${word}${n === 1 ? "" : "s"}`; }

export class Actions {
  constructor(view) {
    this.view = view;
    this.controls = {};
  }

  buttons() {
    const button = (id, label, fn, needs) => {
      const b = h("button", { type: "button", id, onclick: () => fn.call(this) }, label);
      this.controls[id] = { b, needs };
      return b;
    };
    const input = h("input.visually-hidden", { type: "file", multiple: true, id: "upload-input",
      "aria-label": "Choose files to upload", tabindex: "-1" });
    input.addEventListener("change", () => {
      const files = [...input.files].map((file) => ({ file, folder: this.view.path }));
      input.value = "";
      if (files.length) this.view.uploader.add(files);
    });
    return [
      button("new-folder", "New folder", this.newFolder, 0),
      button("upload-button", "Upload", () => input.click(), 0), input,
      button("download-button", "Download", this.downloadSelected, 1),
      button("rename-button", "Rename", this.rename, -1),
      button("move-button", "Move", () => this.transfer("move"), 1),
      button("copy-button", "Copy", () => this.transfer("copy"), 1),
      button("delete-button", "Delete", this.remove, 1),
      button("star-button", "Star", this.star, 1),
      button("share-button", "Share", this.share, -1),
      button("versions-button", "Versions", this.versions, -1),
      button("preview-button", "Preview", this.preview, -1),
      button("details-button", "Details", this.details, -1),
    ];
  }

  // Enables the buttons that fit the selection: needs 0 = always, 1 = some
  // rows, -1 = exactly one row.
  update() {
    const count = this.view.selection.count(Math.max(this.view.source.total, 0));
    for (const { b, needs } of Object.values(this.controls)) {
      b.disabled = needs === 1 ? count === 0 : needs === -1 ? count !== 1 : false;
    }
    const star = this.controls["star-button"];
    if (star) {
      const items = this.view.selection.indexes(count > 500 ? 0 : this.view.source.total)
        .map((i) => this.view.item(i)).filter(Boolean);
      const allStarred = items.length > 0 && items.every((i) => i.starred);
      star.b.textContent = allStarred ? "Unstar" : "Star";
    }
  }

  // Sharing is offered only for an item whose capabilities allow it (owner).
  async share() {
    const [item] = await this.view.selectedItems();
    if (!canShare(item)) {
      toast("You cannot share this item.", "error");
      return;
    }
    openShareDialog(item);
  }

  async versions() {
    const [item] = await this.view.selectedItems();
    if (!item || item.type === "dir") {
      toast("Only a file has versions.", "error");
      return;
    }
    openRevisions(item, () => this.view.refresh());
  }

  async newFolder() {
    const name = await askName("New folder", "New folder", "Create");
    if (!name) return;
    await call("create", { path: this.view.path + "/" + name, type: "folder" });
    toast(`Folder "${name}" created.`);
    this.view.refresh();
  }

  async rename() {
    const [item] = await this.view.selectedItems();
    if (!item || this.view.selection.count(this.view.source.total) !== 1) return;
    const name = await askName("Rename", item.name, "Rename");
    if (!name || name === item.name) return;
    await call("update", { path: item.path, name });
    toast(`Renamed to "${name}".`);
    this.view.refresh();
  }

  async transfer(kind) {
    const items = await this.view.selectedItems();
    if (!items.length) return;
    const verb = kind === "move" ? "Move" : "Copy";
    const target = await pickFolder(`${verb} ${plural(items.length, "item")} to…`, this.view.path,
      `${verb} here`);
    if (!target) return;
    const data = await call(kind, { files: items.map((i) => i.path), to_parent_folder: target,
      conflict_action: "autorename" });
    await waitTask(data.async_task_id, `${verb} ${plural(items.length, "item")}`);
    toast(`${kind === "move" ? "Moved" : "Copied"} ${plural(items.length, "item")}.`);
    this.view.refresh();
  }

  async remove() {
    const items = await this.view.selectedItems();
    if (!items.length) return;
    const what = items.length === 1 ? `"${items[0].name}"` : plural(items.length, "item");
    if (!await confirmAction("Delete", `Move ${what} to the recycle bin?`, "Delete")) return;
    const data = await call("delete", { files: items.map((i) => i.path) });
    await waitTask(data.async_task_id, "Delete " + what);
    const ids = items.map((i) => "id:" + i.file_id);
    toast(`Moved ${what} to the recycle bin.`, "info",
      { id: "undo-delete", label: "Undo", run: () => this.undoDelete(ids, what) });
    this.view.refresh();
  }

  // Puts back from the recycle bin what was just deleted (the items keep
  // their ids there); a name taken meanwhile gets a "(1)" style suffix.
  async undoDelete(ids, what) {
    await call("restore", { files: ids, conflict: "autorename" }, { api: "ZEMO.ZemoraOrvel.Recycle" });
    toast(`Restored ${what}.`);
    this.view.refresh();
  }

  // Labels changed in the details are shown on the row at once.
  async details() {
    const [item] = await this.view.selectedItems();
    if (!item) return;
    openDetails(item, (fresh) => {
      item.labels = fresh.labels;
      this.view.changed();
    });
  }

  async preview() {
    const [item] = await this.view.selectedItems();
    if (item && !await openPreview(item)) this.downloadItems([item]);
  }

  async star() {
    const items = await this.view.selectedItems();
    if (!items.length) return;
    const starred = !items.every((i) => i.starred);
    await call("star", { files: items.map((i) => i.path), starred });
    for (const i of items) i.starred = starred;
    toast(`${starred ? "Starred" : "Unstarred"} ${plural(items.length, "item")}.`);
    this.view.changed();
  }

  async downloadSelected() {
    this.downloadItems(await this.view.selectedItems());
  }

  async downloadItems(items) {
    if (items.length) await download(items);
  }
}
