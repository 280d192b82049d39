import { render } from "preact";
import { App } from "./app";
import "./styles/base.css";
import "./styles/parts.css";
import "./styles/layout.css";

const root = document.getElementById("app");
if (root) render(<App />, root);
