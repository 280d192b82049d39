import { useEffect, useRef } from "preact/hooks";
import type { Field, GetResult, SetResult, UriRow } from "../../app/protocol";
import { RpcError } from "../../app/rpc";
import { reasonOf } from "../../app/session";
import { compactJson, isObject, itemsOf, type Json, type JsonObject } from "../../lib/json";
import { CallList } from "../../app/call-list";
import { JsonBlock } from "../../ui/json-view";
import { ofUri } from "./form";
import type { Outcome } from "./outcomes";
import { label } from "./words";

interface ResponseProps {
  outcome: Outcome | undefined;
  fields: Field[];
  row: UriRow;
}

/** Scrolls to the answer to a new request if it stands below the form and out of sight, as on a phone. */
function useScrollToAnswer(number: number | undefined) {
  const card = useRef<HTMLElement>(null);
  const shown = useRef(number);
  useEffect(() => {
    if (number === shown.current) return;
    shown.current = number;
    const panel = card.current?.closest(".panel");
    if (!card.current || !panel) return;
    const { top } = card.current.getBoundingClientRect();
    const { bottom } = panel.getBoundingClientRect();
    if (top > bottom - leastVisiblePx) card.current.scrollIntoView({ block: "start" });
  }, [number]);
  return card;
}

/** So much of the answer is in sight without scrolling. */
const leastVisiblePx = 240;

export function ResponseView({ outcome, fields, row }: ResponseProps) {
  const card = useScrollToAnswer(outcome?.number);
  return (
    <section ref={card} class="card response" aria-label={label("IDS_RESPONSE")} aria-live="polite">
      <h2>{label("IDS_RESPONSE")}</h2>
      {outcome ? (
        <Answer
          key={outcome.number}
          outcome={outcome}
          fields={fields.map((field) => ofUri(field, row))}
        />
      ) : (
        <p class="empty">{label("IDS_NOTHING_SENT")}</p>
      )}
    </section>
  );
}

const Warnings = ({ texts }: { texts: string[] }) =>
  texts.length === 0 ? null : (
    <ul class="warnings" aria-label={label("IDS_WARNINGS")}>
      {texts.map((text, index) => (
        <li key={index}>{text}</li>
      ))}
    </ul>
  );

/** What a result means, and how it is marked: amber for a get that the plugin answered without the set. */
function verdictOf({ request, answer }: Outcome & { answer: GetResult | SetResult }): { level: string; text: string } {
  if (answer.ret !== 0) return { level: "bad", text: reasonOf(answer) };
  if (request.method === "set" || answer.calls?.length !== 0) return { level: "good", text: label("IDS_DONE_RESULT") };
  return { level: "warn", text: label("IDS_NOT_ASKED") };
}

function Answer({ outcome, fields }: { outcome: Outcome; fields: Field[] }) {
  const { answer, request, millis } = outcome;
  const time = `${request.method} · ${millis < 10 ? millis.toFixed(1) : millis.toFixed(0)} ms`;
  if ("error" in answer) {
    const { error } = answer;
    return (
      <>
        <p class="verdict">
          <span class="badge bad">{error instanceof RpcError ? label("IDS_ERROR_CODE", error.code) : label("IDS_NO_ANSWER")}</span>
          <span>{error.message}</span>
          <span class="quiet">{time}</span>
        </p>
        {error instanceof RpcError && <ErrorData data={error.data} />}
      </>
    );
  }
  const response = "response" in answer ? answer.response : undefined;
  const items = itemsOf(response ?? null);
  const verdict = verdictOf({ ...outcome, answer });
  return (
    <>
      <p class="verdict">
        <span class={`badge ${verdict.level}`}>ret {answer.ret}</span>
        <span>{verdict.text}</span>
        <span class="quiet">{time}</span>
      </p>
      <Warnings texts={answer.warnings ?? []} />
      {items.map((item, index) => (
        <ItemTable key={index} item={item} fields={fields} title={items.length > 1 ? label("IDS_ITEM_NUMBER", index + 1) : ""} />
      ))}
      {response !== undefined && (
        <details class="raw">
          <summary>{label("IDS_RAW_JSON")}</summary>
          <JsonBlock value={response} label={label("IDS_RAW_RESPONSE")} />
        </details>
      )}
      <h3>
        {label("IDS_PLATFORM_CALLS")} <span class="count">{answer.calls?.length ?? 0}</span>
      </h3>
      {answer.calls && answer.calls.length > 0 ? (
        <CallList lines={answer.calls} label={label("IDS_CALLS_OF_REQUEST")} />
      ) : (
        <p class="hint">{label("IDS_NO_CALLS")}</p>
      )}
      {answer.log && answer.log.length > 0 && (
        <details class="raw">
          <summary>
            {label("IDS_LOG")} <span class="count">{answer.log.length}</span>
          </summary>
          <pre class="code" tabIndex={0} aria-label={label("IDS_LOG_OF_REQUEST")}>
            {answer.log.join("\n")}
          </pre>
        </details>
      )}
    </>
  );
}

/** A strict request is refused with its warnings. */
function ErrorData({ data }: { data: Json | undefined }) {
  if (data === undefined) return null;
  const warnings = isObject(data) ? data["warnings"] : undefined;
  return Array.isArray(warnings) ? <Warnings texts={warnings.map(String)} /> : <JsonBlock value={data} label={label("IDS_ERROR_DATA")} />;
}

interface TableRow {
  path: string;
  depth: number;
  key: string;
  value: Json | undefined;
  field: Field | undefined;
}

function rowsOf(item: JsonObject, fields: Field[], prefix = "", depth = 0): TableRow[] {
  return Object.entries(item).flatMap(([key, value]) => {
    const field = fields.find((each) => each.key === key);
    const path = prefix + key;
    if (!isObject(value)) return [{ path, depth, key, value, field }];
    return [
      { path, depth, key, value: undefined, field },
      ...rowsOf(value, field?.fields ?? [], `${path}.`, depth + 1),
    ];
  });
}

/** The meaning of a value, if the description names it. */
const nameOf = (field: Field | undefined, value: Json | undefined): string | undefined =>
  field?.values?.find((row) => row.value === value)?.help;

function ItemTable({ item, fields, title }: { item: JsonObject; fields: Field[]; title: string }) {
  const rows = rowsOf(item, fields);
  if (rows.length === 0) return <p class="hint">{label("IDS_ITEM_EMPTY")}</p>;
  return (
    <table class="item">
      {title && <caption>{title}</caption>}
      <tbody>
        {rows.map(({ path, depth, key, value, field }) => (
          <tr key={path} data-depth={Math.min(depth, 3)}>
            <th scope="row">{key}</th>
            <td>
              {value !== undefined && (
                <span class={typeof value === "number" || typeof value === "bigint" ? "value number" : "value"}>
                  {typeof value === "string" ? value : compactJson(value)}
                  {field?.unit && <span class="unit"> {field.unit}</span>}
                </span>
              )}
              {nameOf(field, value) && <span class="unit"> {nameOf(field, value)}</span>}
              {field?.help && <span class="about">{field.help}</span>}
            </td>
          </tr>
        ))}
      </tbody>
    </table>
  );
}
