// Views beyond the file list (a task panel, the recycle bin, sharing) plug in
// here: a module names its route segment and a label for the side
// navigation, and renders into the container the shell gives it. The shell
// and the router know nothing more about it. Modules are listed in
// js/plugins.js, imported before the router starts.
const entries = [];

// module: {name: route segment, label, render(container, route)}
export function addModule(module) { entries.push(module); }
export function moduleEntries() { return entries.slice(); }
export function findModule(name) { return entries.find((m) => m.name === name); }
