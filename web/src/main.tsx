import { render } from "preact";
import { App } from "./app";
import "./styles/base.css";
import "./styles/header.css";
import "./styles/list.css";
import "./styles/request.css";
import "./styles/live.css";
import "./styles/config.css";
import "./styles/remote.css";
import "./styles/layout.css";

const root = document.getElementById("app");
if (root) render(<App />, root);
