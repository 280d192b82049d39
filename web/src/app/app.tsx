import { Notice } from "../ui/notice";
import { AccessNotice } from "./access-notice";
import { Header } from "./header";
import { label } from "./language";
import { onPage, view } from "./navigation";
import { views } from "./views";

/**
 * A wide screen has three columns: URIs, request and live log. A page, such as the configuration, replaces the first
 * two. A narrow screen shows one view at a time, chosen by the tabs at the bottom.
 */
export function App() {
  const shown = views.filter(({ id, column }) => column || id === view.value);
  return (
    <div class="app" data-view={view.value} data-page={onPage.value}>
      <Header />
      <AccessNotice when="none" />
      <div class="columns">
        {shown.map(({ id, column, component: Panel }) => (
          <div key={id} class={column ? "column" : "page"} data-id={id}>
            <Panel />
          </div>
        ))}
      </div>
      <Notice close={label("IDS_CLOSE")} />
    </div>
  );
}
