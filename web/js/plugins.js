// The optional views of the client, each a module of js/modules.js. None yet:
// the task panel, recycle bin and sharing views are added here with one
// import each, e.g. `import "./recycle.js";` where recycle.js calls addModule.
