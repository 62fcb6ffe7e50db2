// The optional views of the client, each a module of js/modules.js that
// calls addModule; the side navigation lists them in this order.
import "./collections.js";
import "./recycle.js";
import "./task-panel.js";
