import { render } from "preact";
import "../ui/base.css";
import { App } from "./app";
import { startNavigation } from "./navigation";
import { views } from "./views";
import "./header.css";
import "./layout.css";
import "../ui/forced-colors.css";

startNavigation(views);
const root = document.getElementById("app");
if (root) render(<App />, root);
