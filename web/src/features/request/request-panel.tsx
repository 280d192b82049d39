import { useSignal } from "@preact/signals";
import { hexId, shortType } from "../../app/catalogue";
import { selectedUri } from "../../app/navigation";
import { Nearest } from "../../app/nearest";
import type { ItemType, UriRow } from "../../app/protocol";
import { groups, list, setWatched, watched } from "../../app/session";
import { Breakable } from "../../ui/breakable";
import { CopyButton } from "../../ui/copy-button";
import { recalled } from "./history";
import { HistoryList } from "./history-list";
import { outcomes, type Request } from "./outcomes";
import { RequestForm } from "./request-form";
import { ResponseView } from "./response-view";
import { Sample } from "./sample";
import { selectedRow, selectedType } from "./selection";
import { label } from "./words";
import "./request.css";

export function RequestPanel() {
  const row = selectedRow.value;
  const recalledHere = recalled.value?.request.uri === row?.uri ? recalled.value : null;
  return (
    <main class="panel request" aria-label={label("IDS_REQUEST")}>
      {row ? (
        <Selected key={`${row.uri} ${recalledHere?.number ?? 0}`} row={row} type={selectedType.value} recalled={recalledHere?.request} />
      ) : selectedUri.value ? (
        list.value && (
          <div class="empty">
            <p>
              The registry has no URI <code>{selectedUri.value}</code>.
            </p>
            <Nearest key={selectedUri.value} uri={selectedUri.value} />
          </div>
        )
      ) : (
        <Start />
      )}
    </main>
  );
}

type Ability = "get" | "set" | "notify";
const nameOf = (ability: Ability): string =>
  ability === "notify" ? label("IDS_NOTIFICATIONS") : ability === "get" ? "Get" : "Set";

interface SelectedProps {
  row: UriRow;
  type: ItemType | null;
  recalled: Request | undefined;
}

function Selected({ row, type, recalled }: SelectedProps) {
  const abilities = (["get", "set", "notify"] as const).filter((ability) => row[ability]);
  const chosen = useSignal<Ability | undefined>(recalled && row[recalled.method] ? recalled.method : abilities[0]);
  const outcome = outcomes.value.get(row.uri);
  const cut = row.uri.lastIndexOf("/") + 1;
  return (
    <>
      <div class="request-head">
        <h1>
          <span class="quiet">
            <Breakable text={row.uri.slice(0, cut)} />
          </span>
          <wbr />
          <Breakable text={row.uri.slice(cut)} />
        </h1>
        <CopyButton text={row.uri} label="Copy the URI" />
        {row.help && <p class="uri-help">{row.help}</p>}
        <dl class="facts">
          <div>
            <dt>Type</dt>
            <dd>{shortType(row.type)}</dd>
          </div>
          <div>
            <dt>Identifier</dt>
            <dd>{hexId(row.id)}</dd>
          </div>
          <div>
            <dt>Group</dt>
            <dd>{row.group}</dd>
          </div>
          <div>
            <dt>Record</dt>
            <dd>{row.record}</dd>
          </div>
        </dl>
      </div>
      {abilities.length === 0 ? (
        <p class="card not-served">
          {row.without_effect ? (
            <>
              <b>Without effect.</b> The plugin accepts a {row.without_effect.join(" and a ")}, and does nothing.
            </>
          ) : (
            <>
              <b>Not served.</b> The URI is registered, but the plugin serves no request for it.
            </>
          )}
        </p>
      ) : (
        <div class="request-cards">
          <section class="card" aria-label="Make a request">
            {abilities.length === 1 ? (
              <h2>{chosen.value && nameOf(chosen.value)}</h2>
            ) : (
              <div class="segments" role="group" aria-label="Kind of request">
                {abilities.map((ability) => (
                  <button
                    type="button"
                    key={ability}
                    aria-pressed={chosen.value === ability}
                    onClick={() => (chosen.value = ability)}
                  >
                    {nameOf(ability)}
                  </button>
                ))}
              </div>
            )}
            {(chosen.value === "get" || chosen.value === "set") && (
              <RequestForm
                key={chosen.value}
                method={chosen.value}
                row={row}
                type={type}
                recalled={recalled?.method === chosen.value ? { parameter: recalled.parameter } : undefined}
              />
            )}
            {chosen.value === "notify" && <NotifyForm row={row} type={type} />}
          </section>
          {(row.get || row.set) && <ResponseView outcome={outcome} fields={type?.response ?? []} row={row} />}
        </div>
      )}
      <HistoryList />
    </>
  );
}

function NotifyForm({ row, type }: { row: UriRow; type: ItemType | null }) {
  const on = watched.value.has(row.uri);
  const notify = type?.notify;
  return (
    <>
      <p class="hint">
        {notify?.form !== "queued"
          ? "Keeps only the newest: of several changes within a few milliseconds, the last one arrives."
          : notify.bound
            ? `Keeps up to ${notify.bound} bytes: changes within a few milliseconds arrive together, as the members of "ITEMS". ` +
              "Beyond that, the earlier ones are lost."
            : 'Keeps all: changes within a few milliseconds arrive together, as the members of "ITEMS".'}
      </p>
      {notify && notify.fields.length > 0 && (
        <dl class="members">
          {notify.fields.map((field) => (
            <div key={field.key}>
              <dt>{field.key}</dt>
              <dd>
                <span class="quiet">{field.kind}</span> {field.help}
              </dd>
            </div>
          ))}
        </dl>
      )}
      <div class="actions">
        <button type="button" class={on ? "button" : "button primary"} onClick={() => setWatched(row.uri, !on)}>
          {label(on ? "IDS_UNSUBSCRIBE" : "IDS_SUBSCRIBE")}
        </button>
        <span class="quiet">{on ? "Notifications appear in the live log." : ""}</span>
      </div>
      <Sample call={{ method: "subscribe", params: { uri: row.uri } }} />
    </>
  );
}

function Start() {
  const readable = groups.value.flatMap((group) => group.rows).filter((row) => row.get);
  return (
    <div class="start">
      <h1>Talk to the television</h1>
      <p>
        Every setting, list and action of the set has a URI. Choose one on the left to read it, change it or listen to
        it; the page shows the request, the answer and the platform calls that it caused.
      </p>
      <p class="hint">
        Press <kbd>/</kbd> to search, <kbd>↓</kbd> and <kbd>↑</kbd> to move, <kbd>Enter</kbd> to open.
      </p>
      {readable.length > 0 && (
        <>
          <h2>Start with</h2>
          <ul class="start-list">
            {readable.slice(0, 6).map((row) => (
              <li key={row.id}>
                <a href={`#${row.uri}`}>
                  <Breakable text={row.uri} />
                </a>
              </li>
            ))}
          </ul>
        </>
      )}
      <HistoryList />
    </div>
  );
}
