import { effect } from "@preact/signals";
import { render } from "preact";
import "../ui/base.css";
import { App } from "./app";
import { loadPanels } from "./lazy";
import { startNavigation } from "./navigation";
import { list } from "./session";
import { views } from "./views";
import "./header.css";
import "./layout.css";
import "../ui/forced-colors.css";

startNavigation(views);
const root = document.getElementById("app");
if (root) render(<App />, root);

effect(() => {
  if (list.value) void loadPanels();
});
