// Upload queue and its panel: files from the file input or dropped (folders
// walked with webkitGetAsEntry), two at a time, each with its progress bar, a
// total bar, cancel, and retry of a failed file. A taken name is first
// refused by the server ("stop"); the person then picks skip, replace or
// keep both, which become the policies "skip", "overwrite_server" (the old
// content stays a revision) and "autorename".
import { h, formatSize } from "./dom.js";
import { call, uploadFile, ApiError } from "./api.js";
import { askConflict } from "./dialogs.js";

const POLICY = { replace: "overwrite_server", keep: "autorename", skip: "skip" };
const PARALLEL = 2;

export class Uploader {
  constructor(onUploaded) {
    this.onUploaded = onUploaded;
    this.jobs = [];
    this.running = 0;
    this.batchChoice = null;
    this.totalBar = h("progress.total-progress", { id: "upload-total", max: 1, value: 0,
      "aria-label": "Total upload progress" });
    this.summary = h("span.upload-summary", { id: "upload-summary", role: "status" });
    this.list = h("ul.upload-list", { "aria-label": "Uploads" });
    this.panel = h("section.upload-panel", { id: "upload-panel", "aria-label": "Uploads", hidden: true },
      h("header", {}, h("h2", {}, "Uploads"), this.summary,
        h("button", { type: "button", id: "upload-clear", onclick: () => this.clearDone() }, "Clear finished"),
        h("button", { type: "button", "aria-label": "Hide uploads", onclick: () => { this.panel.hidden = true; } }, "×")),
      this.totalBar, this.list);
  }

  // entries: [{file, folder (target folder path)}]
  add(entries) {
    this.batchChoice = null;
    for (const { file, folder } of entries) {
      const job = { file, folder, state: "queued", loaded: 0, policy: "stop", handle: null };
      job.bar = h("progress", { max: file.size || 1, value: 0, "aria-label": "Progress of " + file.name });
      job.status = h("span.upload-status", {}, "Waiting");
      job.retry = h("button", { type: "button", hidden: true, onclick: () => this.retry(job) }, "Retry");
      job.cancel = h("button", { type: "button", onclick: () => this.cancelJob(job) }, "Cancel");
      job.row = h("li.upload-item", { dataset: { name: file.name, state: "queued" } },
        h("span.upload-name", {}, file.name), h("span.upload-size", {}, formatSize(file.size)),
        job.bar, job.status, job.retry, job.cancel);
      this.list.append(job.row);
      this.jobs.push(job);
    }
    this.panel.hidden = false;
    this.update();
    this.pump();
  }

  setState(job, state, text) {
    job.state = state;
    job.row.dataset.state = state;
    job.status.textContent = text;
    job.retry.hidden = state !== "failed";
    job.cancel.hidden = state !== "queued" && state !== "sending";
    this.update();
  }

  update() {
    const live = this.jobs.filter((j) => j.state !== "cancelled" && j.state !== "skipped");
    const size = live.reduce((n, j) => n + (j.file.size || 1), 0);
    const sent = live.reduce((n, j) => n + (j.state === "done" ? (j.file.size || 1) : j.loaded), 0);
    this.totalBar.max = Math.max(size, 1);
    this.totalBar.value = sent;
    const done = this.jobs.filter((j) => j.state === "done").length;
    const failed = this.jobs.filter((j) => j.state === "failed").length;
    this.summary.textContent = `${done} of ${live.length} uploaded` + (failed ? `, ${failed} failed` : "");
  }

  pump() {
    while (this.running < PARALLEL) {
      const job = this.jobs.find((j) => j.state === "queued");
      if (!job) return;
      this.running++;
      this.send(job).finally(() => { this.running--; this.pump(); });
    }
  }

  async send(job) {
    this.setState(job, "sending", "Sending");
    const path = job.folder.replace(/\/$/, "") + "/" + job.file.name;
    job.handle = uploadFile(path, job.file, job.policy, (loaded) => {
      job.loaded = loaded;
      job.bar.value = loaded;
      this.update();
    });
    try {
      await job.handle.promise;
      job.bar.value = job.bar.max;
      this.setState(job, "done", "Uploaded");
      this.onUploaded(job.folder);
    } catch (err) {
      if (err.name === "AbortError") return this.setState(job, "cancelled", "Cancelled");
      if (err instanceof ApiError && err.code === 1031 && job.policy === "stop") {
        return this.resolveConflict(job);
      }
      this.setState(job, "failed", "Failed: " + err.message);
    }
  }

  async resolveConflict(job) {
    let choice = this.batchChoice;
    if (!choice) {
      this.setState(job, "asking", "Name already taken");
      const answer = await askConflict(job.file.name);
      choice = answer.choice;
      if (answer.forAll) this.batchChoice = choice;
    }
    if (choice === "skip") return this.setState(job, "skipped", "Skipped (name taken)");
    job.policy = POLICY[choice];
    job.loaded = 0;
    return this.send(job);
  }

  retry(job) {
    job.loaded = 0;
    job.bar.value = 0;
    this.setState(job, "queued", "Waiting");
    this.pump();
  }

  cancelJob(job) {
    if (job.state === "sending") job.handle.abort();
    else this.setState(job, "cancelled", "Cancelled");
  }

  clearDone() {
    this.jobs = this.jobs.filter((j) => {
      const keep = j.state === "queued" || j.state === "sending" || j.state === "failed" || j.state === "asking";
      if (!keep) j.row.remove();
      return keep;
    });
    this.update();
  }
}

// Files of a drop: plain files, and folders walked through their entries;
// the folders are made first (an existing one is used as it is).
export async function collectDrop(dataTransfer, folder) {
  const roots = [...dataTransfer.items].map((item) => item.webkitGetAsEntry && item.webkitGetAsEntry())
    .filter(Boolean);
  const out = [];
  async function walk(entry, parent) {
    if (entry.isFile) {
      const file = await new Promise((resolve, reject) => entry.file(resolve, reject));
      out.push({ file, folder: parent });
      return;
    }
    const path = parent + "/" + entry.name;
    try {
      await call("create", { path, type: "folder" });
    } catch (err) {
      if (!(err instanceof ApiError && err.code === 1031)) throw err;
    }
    const reader = entry.createReader();
    for (;;) {
      const batch = await new Promise((resolve, reject) => reader.readEntries(resolve, reject));
      if (!batch.length) break;
      for (const child of batch) await walk(child, path);
    }
  }
  if (!roots.length) {
    return [...dataTransfer.files].map((file) => ({ file, folder }));
  }
  for (const entry of roots) await walk(entry, folder);
  return out;
}

