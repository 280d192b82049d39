import { signal, useSignal } from "@preact/signals";
import type { ItemType, UriRow } from "../../app/protocol";
import { connection, kindOf } from "../../app/session";
import { compactJson, itemsOf, prettyJson, type JsonObject } from "../../lib/json";
import { Fields } from "./fields";
import { buildParameter, fieldsOf, valuesOf, type FormValues } from "./form";
import { JsonEditor, readParameter } from "./json-editor";
import { outcomes, send, setStrict, strict, waiting, type Request } from "./outcomes";
import { Sample } from "./sample";
import { WaitLine } from "./wait-line";
import { label } from "./words";

// One choice for all requests: it is kept when another URI is selected.
const asJson = signal(false);

interface FormProps {
  method: "get" | "set";
  row: UriRow;
  type: ItemType | null;
  /** A remembered request, with which the form begins. */
  recalled: Request | undefined;
}

const textOf = (parameter: JsonObject | undefined): string => (parameter ? prettyJson(parameter, 40) : "");

/**
 * A get is sent without a parameter, or as a "QUERY" if a field has been filled in. A set has a request word; of those
 * only "MODIFY" needs its members.
 */
export function RequestForm({ method, row, type, recalled }: FormProps) {
  const { uri } = row;
  const word = method === "get" ? "QUERY" : (type?.set?.request ?? "");
  const required = word === "MODIFY";

  function build(values: FormValues) {
    const fields = fieldsOf((method === "get" ? type?.query : type?.set?.fields) ?? [], row, values);
    const built = buildParameter(word, fields, values, required, kindOf);
    return { fields, built, parameter: method === "set" || built.filled ? built.parameter : undefined };
  }

  const values = useSignal<FormValues>(valuesOf(recalled?.parameter ?? {}));
  // The text as the user typed it, and the form's values at that time. A form that has changed since makes a new text.
  const draft = useSignal({ text: recalled?.typed ?? textOf(recalled?.parameter), values: recalled ? values.peek() : null });

  const { fields, built, parameter: fromForm } = build(values.value);
  const text = draft.value.values === values.value ? draft.value.text : textOf(fromForm);
  const read = readParameter(text, method === "set");
  const parameter = asJson.value ? ("fault" in read ? undefined : read.parameter) : fromForm;
  const typed = asJson.value && parameter ? text : undefined;
  // What the text has and the form cannot show.
  const lost = draft.value.values === values.value ? missing("fault" in read ? undefined : read.parameter, fromForm) : [];

  const wait = waiting.value.get(uri);
  const wrong = asJson.value ? "fault" in read : [...built.problems.values()].some(({ level }) => level === "bad");
  const blocked = wrong || connection.value.name !== "open";

  function choose(json: boolean) {
    if (!json && asJson.peek()) {
      if ("fault" in read) {
        draft.value = { text, values: values.peek() };
      } else {
        const next = valuesOf(read.parameter ?? {});
        draft.value = { text, values: next };
        values.value = next;
      }
    }
    asJson.value = json;
  }

  function submit(event: Event) {
    event.preventDefault();
    if (!blocked && !wait) void send({ method, uri, parameter, typed, strict: strict.peek() });
  }

  if (method === "set" && !type?.set) {
    return <p class="hint">{label("IDS_NO_SET_DESCRIBED", row.type)}</p>;
  }
  const name = method === "get" ? "Get" : word === "ACTION" ? label("IDS_RUN") : "Set";
  return (
    <form onSubmit={submit} aria-label={name}>
      <div class="segments small form-mode" role="group" aria-label={label("IDS_PARAMETER_AS")}>
        <button type="button" aria-pressed={!asJson.value} onClick={() => choose(false)}>
          {label("IDS_FORM")}
        </button>
        <button type="button" aria-pressed={asJson.value} onClick={() => choose(true)}>
          JSON
        </button>
      </div>
      {asJson.value ? (
        <JsonEditor
          text={text}
          fault={"fault" in read ? read.fault : undefined}
          hint={method === "get" ? label("IDS_EMPTY_JSON") : ""}
          onInput={(next) => (draft.value = { text: next, values: values.peek() })}
        />
      ) : (
        <>
          {fields.length > 0 && (
            <Fields list={fields} prefix="" values={values} built={built} current={currentItem(uri)} />
          )}
          {"fault" in read && <p class="hint note">{label("IDS_JSON_FAULT")}</p>}
          {lost.length > 0 && <p class="hint note">{label("IDS_JSON_ONLY", lost.join(", "))}</p>}
          <Hint method={method} fields={fields.length} required={required} />
        </>
      )}
      <div class="actions">
        <button type="submit" class="button primary" disabled={blocked} aria-disabled={wait !== undefined}>
          {name}
        </button>
        <label class="check" title={label("IDS_STRICT_ABOUT")}>
          <input type="checkbox" checked={strict.value} onChange={(event) => setStrict(event.currentTarget.checked)} />
          {label("IDS_STRICT")}
        </label>
        {wait && <WaitLine wait={wait} />}
      </div>
      {!(asJson.value && wrong) && (
        <Sample
          call={{
            method,
            params: { uri, ...(strict.value ? { strict: true } : {}), ...(parameter ? { parameter } : {}) },
            typed,
          }}
        />
      )}
    </form>
  );
}

/** The members that are absent from the form's parameter, or different there. */
function missing(typed: JsonObject | undefined, form: JsonObject | undefined): string[] {
  return Object.entries(typed ?? {})
    .filter(([key, value]) => compactJson(value) !== (form && key in form ? compactJson(form[key]!) : ""))
    .map(([key, value]) => `"${key}": ${compactJson(value)}`);
}

function Hint({ method, fields, required }: { method: "get" | "set"; fields: number; required: boolean }) {
  const none = method === "get" ? "IDS_NO_PARAMETERS_READ" : "IDS_NO_PARAMETERS_ACTION";
  if (fields === 0) return <p class="hint">{label(none)}</p>;
  return required ? null : <p class="hint">{label("IDS_FIELDS_EMPTY")}</p>;
}

/** The item of the last response. */
function currentItem(uri: string): JsonObject {
  const answer = outcomes.value.get(uri)?.answer;
  return answer && "response" in answer ? (itemsOf(answer.response)[0] ?? {}) : {};
}
