import { useSignal } from "@preact/signals";
import { hexId, shortType } from "../../app/catalogue";
import { selectedUri } from "../../app/navigation";
import { Nearest } from "../../app/nearest";
import type { ItemType, UriRow } from "../../app/protocol";
import { groups, list, setWatched, watched } from "../../app/session";
import { Breakable } from "../../ui/breakable";
import { CopyButton } from "../../ui/copy-button";
import { Worded } from "../../ui/worded";
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
              <Worded text={label("IDS_NO_SUCH_URI", selectedUri.value)} as="code" />
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
        <CopyButton text={row.uri} label={label("IDS_COPY_URI")} refused={label("IDS_CLIPBOARD_REFUSED")} />
        {row.help && <p class="uri-help">{row.help}</p>}
        <dl class="facts">
          <div>
            <dt>{label("IDS_TYPE")}</dt>
            <dd>{shortType(row.type)}</dd>
          </div>
          <div>
            <dt>{label("IDS_IDENTIFIER")}</dt>
            <dd>{hexId(row.id)}</dd>
          </div>
          <div>
            <dt>{label("IDS_GROUP")}</dt>
            <dd>{row.group}</dd>
          </div>
          <div>
            <dt>{label("IDS_RECORD_NUMBER")}</dt>
            <dd>{row.record}</dd>
          </div>
        </dl>
      </div>
      {abilities.length === 0 ? (
        <p class="card not-served">
          {row.without_effect ? (
            <>
              <b>{label("IDS_WITHOUT_EFFECT")}.</b> {label("IDS_WITHOUT_EFFECT_ABOUT", row.without_effect.join(", "))}
            </>
          ) : (
            <>
              <b>{label("IDS_NOT_SERVED")}.</b> {label("IDS_NOT_SERVED_ABOUT")}
            </>
          )}
        </p>
      ) : (
        <div class="request-cards">
          <section class="card" aria-label={label("IDS_MAKE_REQUEST")}>
            {abilities.length === 1 ? (
              <h2>{chosen.value && nameOf(chosen.value)}</h2>
            ) : (
              <div class="segments" role="group" aria-label={label("IDS_KIND_OF_REQUEST")}>
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
                recalled={recalled?.method === chosen.value ? recalled : undefined}
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
          ? label("IDS_NOTIFY_NEWEST")
          : notify.bound
            ? label("IDS_NOTIFY_QUEUE_BOUND", notify.bound)
            : label("IDS_NOTIFY_QUEUE")}
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
        <span class="quiet">{on ? label("IDS_NOTIFY_IN_LIVE") : ""}</span>
      </div>
      <Sample call={{ method: "subscribe", params: { uri: row.uri } }} />
    </>
  );
}

function Start() {
  const readable = groups.value.flatMap((group) => group.rows).filter((row) => row.get);
  return (
    <div class="start">
      <h1>{label("IDS_START_TITLE")}</h1>
      <p>{label("IDS_START_ABOUT")}</p>
      <p class="hint">
        <Worded text={label("IDS_START_KEYS")} as="kbd" />
      </p>
      {readable.length > 0 && (
        <>
          <h2>{label("IDS_START_WITH")}</h2>
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
