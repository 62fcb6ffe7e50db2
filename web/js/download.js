// Downloads through a hidden frame, so that the browser saves the file from
// the server's stream (no copy in the page's memory). One file is fetched
// directly; a folder or several items are first staged by the server
// ({"async_task_id"}), then fetched as one zip with "task_id". With
// "json_error", a refusal comes back as the JSON envelope and shows in the
// frame, where the page reads it and says what went wrong.
import { call, linkUrl, unwrap, reportSessionLoss } from "./api.js";
import { h, toast } from "./dom.js";

function fetchInFrame(params) {
  const frame = h("iframe.download-frame", { title: "download", hidden: true,
    src: linkUrl("download", { ...params, json_error: true }) });
  frame.addEventListener("load", () => {
    // Only a refusal loads a document; a saved file fires no load event.
    let text = "";
    try { text = frame.contentDocument.body.textContent; } catch { /* not readable */ }
    frame.remove();
    try {
      unwrap(text);
    } catch (err) {
      reportSessionLoss(err);
      toast("Download failed: " + err.message, "error");
    }
  });
  document.body.append(frame);
}

export async function download(items) {
  if (items.length === 1 && items[0].type !== "dir") {
    fetchInFrame({ files: [items[0].path] });
    return;
  }
  const name = items.length === 1 ? items[0].name : "download";
  const data = await call("download", { files: items.map((i) => i.path), archive_name: name });
  toast(`Preparing ${name}.zip…`);
  fetchInFrame({ task_id: data.async_task_id, archive_name: name });
}
