import { AccessNotice } from "./components/access-notice";
import { ConfigPanel } from "./components/config-panel";
import { Header } from "./components/header";
import { LivePanel } from "./components/live-panel";
import { Notice } from "./components/notice";
import { RemotePanel } from "./components/remote-panel";
import { RequestPanel } from "./components/request-panel";
import { UriList } from "./components/uri-list";
import { view } from "./model/session";

/**
 * Three columns on a desk: URIs, request and live log, where configuration or remote control take the place of the
 * first two. On a narrow screen one of them, chosen by the bar at the bottom.
 */
export function App() {
  return (
    <div class="app" data-view={view.value}>
      <Header />
      <AccessNotice when="none" />
      <div class="columns">
        <UriList />
        <RequestPanel />
        {view.value === "configuration" && <ConfigPanel />}
        {view.value === "remote" && <RemotePanel />}
        <LivePanel />
      </div>
      <Notice />
    </div>
  );
}
