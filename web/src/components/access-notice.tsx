import { label } from "../model/labels";
import { access } from "../model/session";

const texts = { look: "IDS_LOOK_ONLY", none: "IDS_NO_ACCESS" } as const;

/** Says that the host does not let this page do something, and what helps; where it has another reason, nothing. */
export function AccessNotice({ when }: { when: keyof typeof texts }) {
  return (
    access.value === when && (
      <p class="access-notice" role="alert">
        {label(texts[when])}
      </p>
    )
  );
}
