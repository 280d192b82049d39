import { Header } from "./components/header";
import { LivePanel } from "./components/live-panel";
import { Notice } from "./components/notice";
import { RequestPanel } from "./components/request-panel";
import { Tabs } from "./components/tabs";
import { UriList } from "./components/uri-list";
import { view } from "./model/session";

/** Three columns on a desk; on a narrow screen one of them, chosen by the bar at the bottom. */
export function App() {
  return (
    <div class="app" data-view={view.value}>
      <Header />
      <div class="columns">
        <UriList />
        <RequestPanel />
        <LivePanel />
      </div>
      <Tabs />
      <Notice />
    </div>
  );
}
