// Waits for a task that a Files method answered with {"async_task_id"}
// (copy, move, delete), through "ZEMO.ZemoraOrvel.Task" get. A task panel can
// later list the same tasks; this only follows the ones this page started.
import { call, ApiError } from "./api.js";

const TASK_API = "ZEMO.ZemoraOrvel.Task";
const listeners = new Set();

// A future task panel subscribes here to see every task the page follows.
export function onTaskUpdate(fn) { listeners.add(fn); return () => listeners.delete(fn); }

// Without the Task API (an older server: 102 or 103) the task is taken as
// started and the view shows what is there when it reloads.
export async function waitTask(taskId, label) {
  let delay = 100;
  for (;;) {
    let task;
    try {
      ({ task } = await call("get", { task_id: taskId }, { api: TASK_API }));
    } catch (err) {
      if (err instanceof ApiError && (err.code === 102 || err.code === 103)) return {};
      throw err;
    }
    listeners.forEach((fn) => fn({ ...task, label }));
    if (task.state === "finished") return task.result || {};
    if (task.state === "failed" || task.state === "cancelled") {
      const code = task.state === "cancelled" ? 1037 : 1036;
      throw new ApiError(code, task.error && task.error.message);
    }
    await new Promise((resolve) => setTimeout(resolve, delay));
    delay = Math.min(delay * 2, 1000);
  }
}
