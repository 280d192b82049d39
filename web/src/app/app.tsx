import { Notice } from "../ui/notice";
import { QuestionDialog } from "../ui/question";
import { AccessNotice } from "./access-notice";
import { Header } from "./header";
import { label } from "./language";
import { shownTab } from "./layout";
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
        {shown.map(({ id, column, title, component: Panel }) => {
          // A column is the page's main part only while it stands alone. The request's panel is a main part itself.
          const main = column === true && id === shownTab.value && id !== "request";
          return (
            <div key={id} class={column ? "column" : "page"} data-id={id} role={main ? "main" : undefined}>
              {main && <h1 class="unseen">{title()}</h1>}
              <Panel />
            </div>
          );
        })}
      </div>
      <Notice close={label("IDS_CLOSE")} />
      <QuestionDialog cancel={label("IDS_CANCEL")} />
    </div>
  );
}
