// The task panel (#/tasks): the person's recent tasks of the service (Task
// list), newest first, with their progress; queued and running ones can be
// cancelled. The list is read again when a task this page follows moves on,
// and on "Refresh".
import { h, clear, toast, formatTime, formatSize } from "./dom.js";
import { call } from "./api.js";
import { onTaskUpdate } from "./tasks.js";
import { addModule } from "./modules.js";

const TASK_API = { api: "ZEMO.ZemoraOrvel.Task" };
const KINDS = { copy: "Copy", move: "Move", delete: "Delete", download: "Download preparation",
  upload_from_tpx: "Import", convert_office: "Conversion" };

function progressText(task) {
  const p = task.progress || {};
  const parts = [];
  if (p.total) parts.push(`${p.done} of ${p.total} items`);
  if (p.bytes_total) parts.push(`${formatSize(p.bytes_done)} of ${formatSize(p.bytes_total)}`);
  return parts.join(", ");
}

class TaskPanel {
  constructor() {
    this.body = h("tbody", { id: "task-rows" });
    this.status = h("p.list-status", { id: "task-status", role: "status" });
    this.element = h("div.task-view", {},
      h("div.toolbar", {}, h("h1.view-title", {}, "Tasks"), h("span.toolbar-gap"),
        h("button", { type: "button", id: "task-refresh", onclick: () => this.load() }, "Refresh")),
      h("table.item-table", { "aria-label": "Tasks" },
        h("thead", {}, h("tr", {}, ["What", "State", "Progress", "Started", "Actions"].map((t) =>
          h("th", { scope: "col" }, t)))), this.body),
      this.status);
    onTaskUpdate(() => { if (this.element.isConnected) this.load(); });
  }

  async load() {
    try {
      const data = await call("list", { limit: 50 }, TASK_API);
      clear(this.body);
      for (const task of data.tasks) this.body.append(this.row(task));
      this.status.textContent = data.total ? "" : "No tasks.";
    } catch (err) {
      this.status.textContent = err.message;
    }
  }

  row(task) {
    const live = task.state === "queued" || task.state === "running";
    const p = task.progress || {};
    const bar = live && p.total ? h("progress", { max: p.total, value: p.done,
      "aria-label": "Progress" }) : null;
    return h("tr.task-row", { dataset: { id: task.task_id, state: task.state, kind: task.kind } },
      h("td", {}, KINDS[task.kind] || task.kind),
      h("td.task-state", {}, task.state + (task.error && task.error.code && task.state === "failed"
        ? `: ${task.error.message}` : "")),
      h("td", {}, bar, " ", progressText(task)),
      h("td", {}, formatTime(task.started || task.created)),
      h("td.row-actions", {}, live ? h("button.task-cancel", { type: "button",
        onclick: () => this.cancel(task) }, "Cancel") : null));
  }

  async cancel(task) {
    await call("cancel", { task_id: task.task_id }, TASK_API);
    toast("Cancelling the task.");
    this.load();
  }
}

let panel = null;
addModule({
  name: "tasks",
  label: "Tasks",
  render(container) {
    if (!panel) panel = new TaskPanel();
    container.append(panel.element);
    panel.load();
  },
});
