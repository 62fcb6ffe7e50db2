// The versions dialog of one file (toolbar "Versions"): its older contents
// (Revision list), each downloadable and restorable as the current content.
import { h, clear, toast, formatSize, formatTime } from "./dom.js";
import { call, linkUrl } from "./api.js";

const REVISION = "ZEMO.ZemoraOrvel.Revision";

function fetchRevision(path, revisionId) {
  const frame = h("iframe.download-frame", { title: "download", hidden: true,
    src: linkUrl("download", { path, revision_id: revisionId }, REVISION) });
  frame.addEventListener("load", () => frame.remove());
  document.body.append(frame);
}

export function openRevisions(item, onRestored) {
  const list = h("ul.revision-list", { id: "revision-list" });
  const status = h("p", { role: "status", id: "revision-status" }, "Loading…");
  const path = "id:" + item.file_id;
  async function refresh() {
    const data = await call("list", { path, limit: 100 }, { api: REVISION });
    clear(list);
    status.textContent = data.total ? "" : "This file has no older versions.";
    for (const rev of data.revisions) {
      const who = rev.modified_by && (rev.modified_by.display_name || rev.modified_by.name);
      list.append(h("li.revision", { dataset: { id: rev.revision_id } },
        `${formatTime(rev.revision_time)}, ${formatSize(rev.size)}${who ? ", by " + who : ""} `,
        h("button.revision-download", { type: "button", onclick: () => fetchRevision(path, rev.revision_id) },
          "Download"),
        h("button.revision-restore", { type: "button", onclick: async () => {
          await call("restore", { path, revision_id: rev.revision_id }, { api: REVISION });
          toast(`Restored an older version of "${item.name}".`);
          onRestored();
          refresh();
        } }, "Restore")));
    }
  }
  const dialog = h("dialog.dialog", { id: "revision-dialog", "aria-labelledby": "revision-title" },
    h("h2", { id: "revision-title" }, `Versions of "${item.name}"`), list, status,
    h("div.dialog-buttons", {}, h("button", { type: "button", id: "revision-close",
      onclick: () => dialog.close() }, "Close")));
  dialog.addEventListener("close", () => dialog.remove());
  document.body.append(dialog);
  dialog.showModal();
  refresh().catch((err) => { status.textContent = err.message; });
}
